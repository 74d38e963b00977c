#include "measure.h"

#include "fonts.h"
#include "picture.h"

#include <algorithm>
#include <cmath>

namespace preview {
namespace {

// The page's layout.
const std::string PREFIX = "Brem K5 ";
constexpr int RING_X = 240;
constexpr int RING_Y = 364;
constexpr int RING_OUTER_RADIUS = 66 + 6 / 2;

struct Style {
    int x;
    int top;
    int size;
    int prefixStep; ///< pixels a byte of the prefix
    int prefixShift;
    bool wholeBaseline;
};
constexpr Style TITLE = {18, 127, 15, 7, -1, true};
constexpr Style BODY = {18, 163, 21, 10, -2, false};
constexpr int LINE_SPACING = 27;

struct Run {
    std::string text;
    const char* family;
    double x;
    double y;
};

void select(cairo_t* cr, const char* family, int size) {
    cairo_select_font_face(cr, family, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
}

double referenceHeight(cairo_t* cr, const char* family, int size) {
    select(cr, family, size);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, "cairo", &extents);
    return extents.height;
}

std::vector<Run> runsOf(cairo_t* cr, const std::string& text, const Style& style, bool chinese) {
    const bool prefixed = chinese && text.compare(0, PREFIX.size(), PREFIX) == 0;
    const char* const first = chinese && !prefixed ? CHINESE_FAMILY : LATIN_FAMILY;
    double y = style.top + referenceHeight(cr, first, style.size);
    if (style.wholeBaseline || prefixed)
        y = std::trunc(y);
    const double x = style.x;
    if (!prefixed)
        return {{text, first, x, y}};
    const double rest = x + style.prefixStep * static_cast<int>(PREFIX.size());
    return {{PREFIX, first, x, y},
            {text.substr(PREFIX.size()), CHINESE_FAMILY, rest, y + style.prefixShift}};
}

/// Adds the characters of UTF-8 text that the selected font has no glyph for.
void addMissing(cairo_t* cr, const std::string& text, std::vector<std::string>& missing) {
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = start + 1;
        while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80)
            ++end;
        const std::string character = text.substr(start, end - start);
        cairo_glyph_t* glyphs = nullptr;
        int count = 0;
        const cairo_status_t status = cairo_scaled_font_text_to_glyphs(
            cairo_get_scaled_font(cr), 0, 0, character.data(), static_cast<int>(character.size()),
            &glyphs, &count, nullptr, nullptr, nullptr);
        const bool none = status != CAIRO_STATUS_SUCCESS || count == 0 || glyphs[0].index == 0;
        if (none && std::find(missing.begin(), missing.end(), character) == missing.end())
            missing.push_back(character);
        cairo_glyph_free(glyphs);
        start = end;
    }
}

Box inkOf(cairo_t* cr, const Run& run) {
    cairo_text_extents_t extents;
    cairo_text_extents(cr, run.text.c_str(), &extents);
    if (extents.width <= 0 || extents.height <= 0)
        return {};
    const double left = run.x + extents.x_bearing;
    const double top = run.y + extents.y_bearing;
    return {static_cast<int>(std::floor(left)), static_cast<int>(std::floor(top)),
            static_cast<int>(std::ceil(left + extents.width)),
            static_cast<int>(std::ceil(top + extents.height))};
}

Box united(const Box& one, const Box& other) {
    if (one.empty())
        return other;
    if (other.empty())
        return one;
    return {std::min(one.left, other.left), std::min(one.top, other.top),
            std::max(one.right, other.right), std::max(one.bottom, other.bottom)};
}

bool nearRing(const Box& box) {
    return box.left < RING_X + RING_OUTER_RADIUS && box.right > RING_X - RING_OUTER_RADIUS &&
           box.top < RING_Y + RING_OUTER_RADIUS && box.bottom > RING_Y - RING_OUTER_RADIUS;
}

/// Draws the runs alone, and looks for ink within the ring.
bool inkInRing(const std::vector<Run>& runs, int size) {
    const SurfacePtr surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB16_565, PAGE_WIDTH, PAGE_HEIGHT));
    const ContextPtr cr(cairo_create(surface.get()));
    cairo_set_source_rgb(cr.get(), 1, 1, 1);
    for (const Run& run : runs) {
        select(cr.get(), run.family, size);
        cairo_move_to(cr.get(), run.x, run.y);
        cairo_show_text(cr.get(), run.text.c_str());
    }
    cairo_surface_flush(surface.get());
    const unsigned char* const data = cairo_image_surface_get_data(surface.get());
    const int stride = cairo_image_surface_get_stride(surface.get());
    for (int y = RING_Y - RING_OUTER_RADIUS; y < RING_Y + RING_OUTER_RADIUS; ++y) {
        const auto* const row =
            reinterpret_cast<const std::uint16_t*>(data + std::ptrdiff_t{y} * stride);
        const double dy = y + 0.5 - RING_Y;
        const double half = std::sqrt(RING_OUTER_RADIUS * RING_OUTER_RADIUS - dy * dy);
        const auto first = static_cast<int>(RING_X - half);
        const auto last = static_cast<int>(RING_X + half);
        if (std::any_of(row + first, row + last, [](std::uint16_t pixel) { return pixel != 0; }))
            return true;
    }
    return false;
}

MeasuredText measure(cairo_t* cr, const std::string& text, const Style& style, bool chinese) {
    MeasuredText measured{};
    const std::vector<Run> runs = runsOf(cr, text, style, chinese);
    for (const Run& run : runs) {
        select(cr, run.family, style.size);
        measured.ink = united(measured.ink, inkOf(cr, run));
        addMissing(cr, run.text, measured.missing);
        if (!measured.missing.empty() && measured.font.empty())
            measured.font = run.family;
    }
    measured.touchesRing = nearRing(measured.ink) && inkInRing(runs, style.size);
    return measured;
}

} // namespace

std::vector<MeasuredText> measurePage(const std::string& title,
                                      const std::vector<std::string>& lines, bool chinese) {
    // The same kind of surface as the page's: it decides how glyphs are placed.
    const SurfacePtr surface(cairo_image_surface_create(CAIRO_FORMAT_RGB16_565, 1, 1));
    const ContextPtr cr(cairo_create(surface.get()));
    std::vector<MeasuredText> texts = {measure(cr.get(), title, TITLE, chinese)};
    Style style = BODY;
    for (const std::string& line : lines) {
        texts.push_back(measure(cr.get(), line, style, chinese));
        style.top += LINE_SPACING;
    }
    return texts;
}

} // namespace preview
