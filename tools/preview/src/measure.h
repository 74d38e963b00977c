/// \file
/// Where the texts of a page come to lie, by the page's own layout and fonts.
#pragma once

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
    Box ink;                          ///< what is drawn, also where that lies outside the page
    bool touchesRing;                 ///< some of it lies on the ring or within it
    std::vector<std::string> missing; ///< characters drawn as a box for want of a glyph
    std::string font;                 ///< the family asked for in which they are missing
};

/// The title first, then the lines. The text must be UTF-8.
std::vector<MeasuredText> measurePage(const std::string& title,
                                      const std::vector<std::string>& lines, bool chinese);

} // namespace preview
