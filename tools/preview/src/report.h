/// \file
/// What a check has found, written down.
#pragma once

#include "check.h"

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace preview {

/// "2 errors, 1 warning", or "good".
std::string verdictOn(std::size_t errors, std::size_t warnings);
/// "Latin: DejaVu Sans in place of ...": what a family is drawn with.
std::string fontLine(const char* use, const char* family);
/// "12 px left", up to the end of the divider.
std::string roomIn(const MeasuredText& text);
/// For people: every text with the room that is left in its line.
void writeTable(std::ostream& out, const std::string& catalogue,
                const std::vector<CheckedPage>& pages);
void writeJson(std::ostream& out, const std::string& catalogue,
               const std::vector<CheckedPage>& pages);

} // namespace preview
