#pragma once

#include <string>

namespace preview {

/// Writes a whole file, in the place of one that was there, which stays where the new one cannot be
/// written; "-" is standard output. Throws std::runtime_error that names the file and the reason.
void writeFile(const std::string& bytes, const std::string& path);

} // namespace preview
