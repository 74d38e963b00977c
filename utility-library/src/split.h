#pragma once

#include <string>
#include <vector>

namespace brem {

/// The pieces of a text between delimiters. Empty pieces before and between delimiters are kept; an
/// empty rest behind the last one is none, so an empty text has no pieces. The delimiter is not
/// empty.
std::vector<std::string> split(const std::string& text, const std::string& delimiter);

} // namespace brem
