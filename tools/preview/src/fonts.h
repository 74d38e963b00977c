/// \file
/// The fonts that the page is drawn with.
#pragma once

#include <string>

namespace preview {

/// The families that the page asks for.
constexpr const char* LATIN_FAMILY = "Univers Next W1G Medium";
constexpr const char* CHINESE_FAMILY = "Droid Sans Fallback";

/// Lets the program (its path) read the font configuration that is installed beside it, as on the
/// device. Not where the environment names another, or where the person has fonts of their own,
/// which only the machine's configuration finds. Before useFonts().
void useDeviceFonts(const std::string& program);

/// Makes both this program and the splash draw with these font files; an empty path leaves a family
/// as it is installed. `root` takes the configuration. Call it before anything is drawn.
/// Throws std::runtime_error where a file holds no font.
void useFonts(const std::string& latinFile, const std::string& chineseFile,
              const std::string& root);

/// Name of the font that is drawn where the page asks for `family`.
std::string fontFor(const std::string& family);

} // namespace preview
