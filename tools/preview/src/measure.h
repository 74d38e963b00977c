/// \file
/// Where the texts of a page have come to lie.
#pragma once

#include "page_record.h"

#include <cairo.h>

#include <optional>
#include <string>
#include <vector>

namespace preview {

/// A rectangle of pixels; the right and lower edges are the first pixels outside.
struct Box {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
    bool empty() const { return right <= left || bottom <= top; }
};

/// One text as it is drawn.
struct MeasuredText {
    std::string text;
    Box ink;                           ///< what is drawn, also where that lies outside the page
    int left = 0;                      ///< pixels from its end to the divider's; may be negative
    std::optional<int> gap;            ///< between its two runs; negative where they overlap
    Box joint;                         ///< where the two runs meet
    bool touchesRing = false;          ///< some of it lies on the ring or within it
    std::vector<std::string> missing;  ///< characters drawn as a box for want of a glyph
    std::string font;                  ///< the family asked for in which they are missing
    std::vector<std::string> unhidden; ///< characters that should not show, and do
};

/// Whether the font that is selected has the character.
bool hasGlyph(cairo_t* cr, const std::string& character);

/// The title first, then the lines.
std::vector<MeasuredText> measurePage(const PageRecord& page);

} // namespace preview
