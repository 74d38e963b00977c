#include "sheet.h"

#include "fonts.h"
#include "picture.h"
#include "report.h"
#include "script.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace preview {
namespace {

constexpr double SCALE = 0.5;
constexpr int CELL_WIDTH = 240;
constexpr int CELL_HEIGHT = 400;
constexpr int CAPTION = 26;
constexpr int NOTE = 15;
constexpr int MARGIN = 24;
constexpr std::size_t MOST_IN_A_ROW = 6;
constexpr std::size_t MOST_NOTES = 5;
constexpr double NOTE_SIZE = 10.5;
const char* const FAMILY = "sans-serif";

struct Colour {
    double red;
    double green;
    double blue;
};
constexpr Colour DESK = {0.925, 0.93, 0.94};
constexpr Colour EDGE = {0.78, 0.79, 0.81};
constexpr Colour INK = {0.2, 0.22, 0.25};
constexpr Colour GOOD = {0.10, 0.50, 0.25};
constexpr Colour BAD = {0.80, 0.10, 0.12};
constexpr Colour DOUBTFUL = {0.72, 0.42, 0.0};

const Colour& colourOf(Severity severity) {
    return severity == Severity::ERROR ? BAD : DOUBTFUL;
}

/// Of the worst finding.
const Colour& colourOf(const CheckedPage& checked, const Colour& good) {
    const bool error = countFindings(checked, Severity::ERROR) > 0;
    return checked.findings.empty() ? good : error ? BAD : DOUBTFUL;
}

void setColour(cairo_t* cr, const Colour& colour, double alpha = 1) {
    cairo_set_source_rgba(cr, colour.red, colour.green, colour.blue, alpha);
}

/// False if there is no font for the character.
bool selectFontFor(cairo_t* cr, const std::string& character, bool bold) {
    for (const char* const family : {FAMILY, CHINESE_FAMILY}) {
        cairo_select_font_face(cr, family, CAIRO_FONT_SLANT_NORMAL,
                               bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
        if (hasGlyph(cr, character)) {
            return true;
        }
    }
    return false;
}

/// How wide the text is. A character that no font has is left out: it would be a box like the one
/// that is complained about.
double setText(cairo_t* cr, double size, const std::string& text, bool bold, bool draw) {
    double width = 0;
    cairo_set_font_size(cr, size);
    for (const std::string& character : charactersOf(text)) {
        if (!selectFontFor(cr, character, bold)) {
            continue;
        }
        cairo_text_extents_t extents;
        cairo_text_extents(cr, character.c_str(), &extents);
        width += extents.x_advance;
        if (draw) {
            cairo_show_text(cr, character.c_str());
        }
    }
    return width;
}

double widthOf(cairo_t* cr, double size, const std::string& text) {
    return setText(cr, size, text, false, false);
}

void write(cairo_t* cr, double x, double y, double size, const std::string& text, bool bold) {
    cairo_move_to(cr, x, y);
    setText(cr, size, text, bold, true);
}

/// Marks the part of the box that is on the page; what lies outside leaves a bar at the edge.
void mark(cairo_t* cr, const Box& box, const Colour& colour) {
    constexpr double PAD = 3;
    constexpr double BAR = 5;
    const double left = std::clamp(box.left - PAD, 0.0, double{PAGE_WIDTH} - BAR);
    const double top = std::clamp(box.top - PAD, 0.0, double{PAGE_HEIGHT} - BAR);
    const double right = std::clamp(box.right + PAD, left + BAR, double{PAGE_WIDTH});
    const double bottom = std::clamp(box.bottom + PAD, top + BAR, double{PAGE_HEIGHT});
    cairo_rectangle(cr, left, top, right - left, bottom - top);
    setColour(cr, colour, 0.14);
    cairo_fill_preserve(cr);
    setColour(cr, colour, 0.9);
    cairo_set_line_width(cr, 2);
    cairo_stroke(cr);
    if (box.right > PAGE_WIDTH) {
        cairo_rectangle(cr, PAGE_WIDTH - BAR, top, BAR, bottom - top);
        cairo_fill(cr);
    }
    if (box.bottom > PAGE_HEIGHT) {
        cairo_rectangle(cr, left, PAGE_HEIGHT - BAR, right - left, BAR);
        cairo_fill(cr);
    }
}

void drawPage(cairo_t* cr, const CheckedPage& checked) {
    cairo_save(cr);
    cairo_rectangle(cr, 0, 0, CELL_WIDTH, CELL_HEIGHT);
    cairo_clip(cr);
    cairo_scale(cr, SCALE, SCALE);
    if (checked.picture) {
        const SurfacePtr page = toSurface(*checked.picture);
        cairo_set_source_surface(cr, page.get(), 0, 0);
        cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
        cairo_paint(cr);
    } else {
        cairo_set_source_rgb(cr, 1, 1, 1);
        cairo_paint(cr);
        setColour(cr, BAD);
        write(cr, 18, 140, 24, "This page cannot be drawn.", false);
    }
    for (const Finding& finding : checked.findings) {
        if (finding.box) {
            mark(cr, *finding.box, colourOf(finding.severity));
        }
    }
    cairo_restore(cr);
    cairo_rectangle(cr, -0.5, -0.5, CELL_WIDTH + 1, CELL_HEIGHT + 1);
    setColour(cr, colourOf(checked, EDGE));
    cairo_set_line_width(cr, 1);
    cairo_stroke(cr);
}

/// The findings in rows as wide as a page.
std::vector<std::string> notesOf(cairo_t* cr, const CheckedPage& checked) {
    std::vector<std::string> rows;
    for (const Finding& finding : checked.findings) {
        rows.emplace_back();
        std::istringstream words(finding.what);
        for (std::string word; words >> word;) {
            const std::string longer = rows.back() + (rows.back().empty() ? "" : " ") + word;
            if (widthOf(cr, NOTE_SIZE, longer) <= CELL_WIDTH || rows.back().empty()) {
                rows.back() = longer;
            } else {
                rows.push_back("  " + word);
            }
        }
    }
    if (rows.size() > MOST_NOTES) {
        rows.resize(MOST_NOTES);
        rows.back() += " …";
    }
    return rows;
}

void drawCaption(cairo_t* cr, const CheckedPage& checked) {
    constexpr double VERDICT_SIZE = 12;
    setColour(cr, INK);
    write(cr, 0, -9, 13, checked.page.language, true);
    setColour(cr, colourOf(checked, GOOD));
    const std::string verdict = "row " + std::to_string(checked.page.row) + ": " +
                                verdictOn(countFindings(checked, Severity::ERROR),
                                          countFindings(checked, Severity::WARNING));
    write(cr, CELL_WIDTH - widthOf(cr, VERDICT_SIZE, verdict), -9, VERDICT_SIZE, verdict, false);
    double y = CELL_HEIGHT + NOTE;
    for (const std::string& note : notesOf(cr, checked)) {
        write(cr, 0, y, NOTE_SIZE, note, false);
        y += NOTE;
    }
}

} // namespace

void writeSheet(const std::vector<CheckedPage>& pages, const std::string& path) {
    // As wide as high, roughly.
    const auto ideal = static_cast<std::size_t>(std::ceil(std::sqrt(double(pages.size()) * 2.2)));
    const std::size_t columns = std::min({ideal, MOST_IN_A_ROW, pages.size()});
    const std::size_t rows = (pages.size() + columns - 1) / columns;
    std::size_t notes = 0;
    {
        const SurfacePtr scratch(cairo_image_surface_create(CAIRO_FORMAT_RGB24, 1, 1));
        const ContextPtr ruler(cairo_create(scratch.get()));
        for (const CheckedPage& page : pages) {
            notes = std::max(notes, notesOf(ruler.get(), page).size());
        }
    }
    const int cellHeight = CAPTION + CELL_HEIGHT + NOTE * static_cast<int>(notes) + MARGIN;
    const int width = MARGIN + (CELL_WIDTH + MARGIN) * static_cast<int>(columns);
    const int height = MARGIN + cellHeight * static_cast<int>(rows);
    const SurfacePtr surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
    const ContextPtr cr(cairo_create(surface.get()));
    setColour(cr.get(), DESK);
    cairo_paint(cr.get());
    for (std::size_t i = 0; i < pages.size(); ++i) {
        cairo_save(cr.get());
        cairo_translate(cr.get(), MARGIN + (CELL_WIDTH + MARGIN) * static_cast<int>(i % columns),
                        MARGIN + cellHeight * static_cast<int>(i / columns) + CAPTION);
        drawPage(cr.get(), pages[i]);
        drawCaption(cr.get(), pages[i]);
        cairo_restore(cr.get());
    }
    writePng(surface.get(), path);
}

} // namespace preview
