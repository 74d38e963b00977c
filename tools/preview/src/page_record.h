/// \file
/// What the program drew on a page, by its own drawing calls.
#pragma once

#include <string>
#include <vector>

namespace preview {

/// A piece of text in one font.
struct Run {
    std::string text; ///< UTF-8
    std::string family;
    double size;
    double x; ///< where its baseline begins
    double y;
};

struct PageRecord {
    /// The title first, then the lines; each in the runs that it is drawn in.
    std::vector<std::vector<Run>> texts;
    double dividerEnd = 0; ///< its right end
    double ringX = 0;
    double ringY = 0;
    double ringRadius = 0; ///< to the outer edge
};

/// Reads the first page of a record of drawing calls, one JSON object a line. Throws
/// std::runtime_error where there is no whole page.
PageRecord readPageRecord(const std::string& path);

} // namespace preview
