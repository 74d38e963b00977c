#include "measure.h"

#include "picture.h"
#include "script.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace preview {
namespace {

void select(cairo_t* cr, const Run& run) {
    cairo_select_font_face(cr, run.family.c_str(), CAIRO_FONT_SLANT_NORMAL,
                           CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, run.size);
}

Box inkOf(cairo_t* cr, const Run& run) {
    select(cr, run);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, run.text.c_str(), &extents);
    if (extents.width <= 0 || extents.height <= 0) {
        return {};
    }
    const double left = run.x + extents.x_bearing;
    const double top = run.y + extents.y_bearing;
    return {static_cast<int>(std::floor(left)), static_cast<int>(std::floor(top)),
            static_cast<int>(std::ceil(left + extents.width)),
            static_cast<int>(std::ceil(top + extents.height))};
}

Box united(const Box& one, const Box& other) {
    if (one.empty()) {
        return other;
    }
    if (other.empty()) {
        return one;
    }
    return {std::min(one.left, other.left), std::min(one.top, other.top),
            std::max(one.right, other.right), std::max(one.bottom, other.bottom)};
}

void addOnce(std::vector<std::string>& characters, const std::string& character) {
    if (std::find(characters.begin(), characters.end(), character) == characters.end()) {
        characters.push_back(character);
    }
}

void lookAtCharacters(cairo_t* cr, const Run& run, MeasuredText& measured) {
    select(cr, run);
    for (const std::string& character : charactersOf(run.text)) {
        cairo_text_extents_t extents;
        if (!hasGlyph(cr, character)) {
            addOnce(measured.missing, character);
            measured.font = run.family;
        } else if (shouldBeInvisible(character)) {
            cairo_text_extents(cr, character.c_str(), &extents);
            if (extents.width > 0) {
                addOnce(measured.unhidden, character);
            }
        }
    }
}

bool nearRing(const Box& box, const PageRecord& page) {
    return box.left < page.ringX + page.ringRadius && box.right > page.ringX - page.ringRadius &&
           box.top < page.ringY + page.ringRadius && box.bottom > page.ringY - page.ringRadius;
}

/// Draws the runs alone, and looks for ink within the ring.
bool inkInRing(const std::vector<Run>& runs, const PageRecord& page) {
    const SurfacePtr surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB16_565, PAGE_WIDTH, PAGE_HEIGHT));
    const ContextPtr cr(cairo_create(surface.get()));
    cairo_set_source_rgb(cr.get(), 1, 1, 1);
    for (const Run& run : runs) {
        select(cr.get(), run);
        cairo_move_to(cr.get(), run.x, run.y);
        cairo_show_text(cr.get(), run.text.c_str());
    }
    cairo_surface_flush(surface.get());
    const unsigned char* const data = cairo_image_surface_get_data(surface.get());
    const int stride = cairo_image_surface_get_stride(surface.get());
    const auto lowest = static_cast<int>(page.ringY + page.ringRadius);
    for (auto y = static_cast<int>(page.ringY - page.ringRadius); y < lowest; ++y) {
        const auto* const row =
            reinterpret_cast<const std::uint16_t*>(data + std::ptrdiff_t{y} * stride);
        const double dy = y + 0.5 - page.ringY;
        const double half = std::sqrt(page.ringRadius * page.ringRadius - dy * dy);
        const auto first = static_cast<int>(page.ringX - half);
        const auto last = static_cast<int>(page.ringX + half);
        if (std::any_of(row + first, row + last, [](std::uint16_t pixel) { return pixel != 0; })) {
            return true;
        }
    }
    return false;
}

MeasuredText measure(cairo_t* cr, const std::vector<Run>& runs, const PageRecord& page) {
    MeasuredText measured;
    for (const Run& run : runs) {
        const Box ink = inkOf(cr, run);
        if (!ink.empty() && !measured.ink.empty()) {
            measured.gap = ink.left - measured.ink.right;
            measured.joint = united(ink, measured.ink);
            measured.joint.left = std::min(ink.left, measured.ink.right);
            measured.joint.right = std::max(ink.left, measured.ink.right);
        }
        measured.text += run.text;
        measured.ink = united(measured.ink, ink);
        lookAtCharacters(cr, run, measured);
    }
    const double end = measured.ink.empty() ? runs.front().x : measured.ink.right;
    measured.left = static_cast<int>(std::floor(page.dividerEnd - end));
    measured.touchesRing = nearRing(measured.ink, page) && inkInRing(runs, page);
    return measured;
}

} // namespace

bool hasGlyph(cairo_t* cr, const std::string& character) {
    cairo_glyph_t* glyphs = nullptr;
    int count = 0;
    const cairo_status_t status = cairo_scaled_font_text_to_glyphs(
        cairo_get_scaled_font(cr), 0, 0, character.data(), static_cast<int>(character.size()),
        &glyphs, &count, nullptr, nullptr, nullptr);
    const bool has = status == CAIRO_STATUS_SUCCESS && count > 0 && glyphs[0].index != 0;
    cairo_glyph_free(glyphs);
    return has;
}

std::vector<MeasuredText> measurePage(const PageRecord& page) {
    // The same kind of surface as the page's: it decides how glyphs are placed.
    const SurfacePtr surface(cairo_image_surface_create(CAIRO_FORMAT_RGB16_565, 1, 1));
    const ContextPtr cr(cairo_create(surface.get()));
    std::vector<MeasuredText> texts;
    for (const std::vector<Run>& runs : page.texts) {
        texts.push_back(measure(cr.get(), runs, page));
    }
    return texts;
}

} // namespace preview
