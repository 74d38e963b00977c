/// \file
/// Which texts the program cannot draw as they are written: it puts one glyph for each character,
/// from left to right, and shapes nothing.
#pragma once

#include <string>
#include <vector>

namespace preview {

/// The characters of UTF-8 text, each as UTF-8.
std::vector<std::string> charactersOf(const std::string& text);

/// The character with its code: 起 (U+8D77). A character that shows nothing is its code alone.
std::string withCode(const std::string& character);

/// A character that is there for a program, not for the eye, such as a soft hyphen.
bool shouldBeInvisible(const std::string& character);

/// A sign that is drawn over the letter before it.
bool isCombining(const std::string& character);

/// Why the text cannot look right, to be said behind its name: "is in Arabic, ...". Empty where it
/// can.
std::string needsShaping(const std::string& text);

} // namespace preview
