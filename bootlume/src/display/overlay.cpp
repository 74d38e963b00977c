#include "display/overlay.h"

#include "display/language.h"
#include "display/utf8.h"
#include "split.h"
#include "tracing.h"
#include "wall_clock.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <utility>

namespace paint {

namespace {

constexpr double PI = 3.141592653589793;
/// Gives a font its reference height, whatever the text.
const char* const SAMPLE = "cairo";

using brem::WallClock;

std::chrono::milliseconds since(WallClock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(WallClock::now() - start);
}

int bytesOfRow() {
    return cairo_format_stride_for_width(CAIRO_FORMAT_RGB16_565, Surface::WIDTH);
}

/// A cairo surface that draws straight into a frame buffer.
cairo_surface_t* surfaceOver(const Buffer& buffer, int stride) {
    return cairo_image_surface_create_for_data(static_cast<unsigned char*>(buffer.start),
                                               CAIRO_FORMAT_RGB16_565, Surface::WIDTH,
                                               Surface::HEIGHT, stride);
}

void useTextColour(cairo_t* cr) {
    cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
}

/// Selects the font; returns the height of the sample text in it.
double selectFont(cairo_t* cr, const std::string& family, std::int32_t size) {
    cairo_select_font_face(cr, family.c_str(), CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
    cairo_text_extents_t extents{};
    cairo_text_extents(cr, SAMPLE, &extents);
    return extents.height;
}

void showText(cairo_t* cr, const std::string& text, double x, double y) {
    cairo_move_to(cr, x, y);
    cairo_show_text(cr, drawableText(text).c_str());
}

} // namespace

Overlay::Overlay() {
    const int stride = bytesOfRow();
    for (const Buffer& buffer : m_surface.buffers()) {
        m_surfaces.push_back(surfaceOver(buffer, stride));
    }
    for (cairo_surface_t* const surface : m_surfaces) {
        m_contexts.push_back(cairo_create(surface)); // never destroyed, on purpose
    }
}

Overlay::~Overlay() {
    for (cairo_surface_t* const surface : m_surfaces) {
        cairo_surface_destroy(surface);
    }
}

void Overlay::setText(const std::string& title, const std::string& lines) {
    const std::lock_guard<std::mutex> lock(m_textMutex);
    m_title = title;
    m_lines = brem::split(lines, "\n");
    std::vector<std::string> escaped = brem::split(lines, "\\n");
    if (escaped.size() > m_lines.size()) {
        m_lines = std::move(escaped);
    }
}

void Overlay::run() {
    while (m_running) {
        m_chinese = isChineseSelected();
        const auto start = WallClock::now();
        drawFrame(m_surface.freeBufferIndex());
        auto exec_ms = since(start);
        TRACE(Trace::LEVEL_VERBOSE, "Drawing time used" << TRACE_VALUE(exec_ms.count()));
        m_surface.flip(); // a failure is logged there, and the next frame tries again
        exec_ms = since(start);
        TRACE(Trace::LEVEL_VERBOSE, "Drawing and Flip time used" << TRACE_VALUE(exec_ms.count()));
        sleepForRest(exec_ms);
    }
    m_surface.close();
}

void Overlay::drawFrame(std::uint32_t index) {
    m_refused.forgetAfterAMinute();
    cairo_set_source_rgb(m_contexts[index], 1.0, 1.0, 1.0);
    cairo_paint(m_contexts[index]);
    drawTexts(index);
    m_refused.report();
    drawDivider(m_contexts[index]);
    drawSpinner(m_contexts[index]);
    m_frame += 1;
}

void Overlay::drawTexts(std::uint32_t index) {
    const std::lock_guard<std::mutex> lock(m_textMutex);
    useTextColour(m_contexts[index]);
    const TextStyle title{m_titleX, m_titleFontSize, m_titleCharWidth, m_titleRunYOffset, true};
    drawText(index, m_title, m_titleY, title);
    // The baseline of a line is cut to a whole number only if the line has two runs, on purpose.
    const TextStyle body{m_linesX, m_lineFontSize, m_lineCharWidth, m_lineRunYOffset, false};
    std::int32_t top = m_linesY;
    for (const std::string& line : m_lines) {
        drawText(index, line, top, body);
        top += m_lineSpacing;
    }
}

void Overlay::drawText(std::uint32_t index, const std::string& text, std::int32_t top,
                       const TextStyle& style) {
    const TextRuns runs = textRuns(text);
    const bool twoRuns = !runs.secondFont.empty();
    const auto baseline = [&](double height) {
        const double y = top + height;
        return style.wholeBaseline || twoRuns ? std::trunc(y) : y;
    };
    double height = 0;
    if (!m_refused.contains(runs.firstFont, runs.firstText)) {
        cairo_t* const cr = m_contexts[index];
        height = selectFont(cr, runs.firstFont, style.fontSize);
        showText(cr, runs.firstText, style.x, baseline(height));
        checkDrawn(index, runs.firstFont, runs.firstText);
    }
    if (twoRuns && !m_refused.contains(runs.secondFont, runs.secondText)) {
        cairo_t* const cr = m_contexts[index];
        const double ownHeight = selectFont(cr, runs.secondFont, style.fontSize);
        const auto advance = style.charWidth * static_cast<std::int32_t>(runs.firstText.size());
        // The first font gives both runs their baseline, if it can be read.
        const bool isFirstRefused = m_refused.contains(runs.firstFont, runs.firstText);
        const double y = baseline(isFirstRefused ? ownHeight : height) + style.runYOffset;
        showText(cr, runs.secondText, style.x + advance, y);
        checkDrawn(index, runs.secondFont, runs.secondText);
    }
}

/// An error in a context lasts, and so does one in its surface: cairo would draw nothing more
/// there, not even the ring.
void Overlay::checkDrawn(std::uint32_t index, const std::string& font, const std::string& text) {
    const cairo_status_t status = cairo_status(m_contexts[index]);
    if (status != CAIRO_STATUS_SUCCESS) {
        m_refused.add(font, text, status);
        if (cairo_surface_status(m_surfaces[index]) != CAIRO_STATUS_SUCCESS) {
            cairo_surface_destroy(m_surfaces[index]); // the old context still holds it
            m_surfaces[index] = surfaceOver(m_surface.buffers()[index], bytesOfRow());
        }
        m_contexts[index] = cairo_create(m_surfaces[index]); // the old one lives on, too
        useTextColour(m_contexts[index]);
    }
}

TextRuns Overlay::textRuns(const std::string& text) const {
    if (!m_chinese) {
        return {text, m_latinFont, "", ""};
    }
    const std::size_t prefix = m_productPrefix.size();
    if (text.compare(0, prefix, m_productPrefix) == 0) {
        return {m_productPrefix, m_latinFont, text.substr(prefix), m_chineseFont};
    }
    return {text, m_chineseFont, "", ""};
}

void Overlay::drawDivider(cairo_t* cr) const {
    cairo_set_line_width(cr, m_dividerWidth);
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_move_to(cr, m_dividerX + 0.5, m_dividerY + 0.5);
    cairo_line_to(cr, m_dividerX + m_dividerLength + 0.5, m_dividerY + 0.5);
    cairo_stroke(cr);
}

void Overlay::drawSpinner(cairo_t* cr) const {
    const std::int32_t step = m_frame % m_spinnerSteps;
    const double angle = (2 * step) * PI / m_spinnerSteps;
    cairo_set_line_width(cr, m_spinnerLineWidth);
    cairo_set_source_rgba(cr, 0, 0, 0, 0.21);
    cairo_arc(cr, m_spinnerX, m_spinnerY, m_spinnerRadius, angle, angle + PI);
    cairo_stroke(cr);
    cairo_set_line_width(cr, m_spinnerLineWidth);
    cairo_set_source_rgba(cr, 0, 0, 0, 0.76);
    cairo_arc(cr, m_spinnerX, m_spinnerY, m_spinnerRadius, angle + PI, angle);
    cairo_stroke(cr);
}

void Overlay::sleepForRest(std::chrono::milliseconds used) const {
    const std::chrono::milliseconds period(m_framePeriodMs);
    // A wall clock that is set back in the middle of a frame must not make it sleep for hours.
    const auto rest = std::min(period - used, period).count();
    if (rest > 0) {
        const timespec pause{static_cast<time_t>(rest / 1000),
                             static_cast<long>(rest % 1000) * 1000000};
        nanosleep(&pause, nullptr); // a signal may end it: the next frame then comes sooner
    }
}

} // namespace paint
