#pragma once

#include "check.h"

#include <string>
#include <vector>

namespace preview {

/// Puts the pages side by side, findings marked, and writes the sheet as a PNG. Throws
/// std::runtime_error.
void writeSheet(const std::vector<CheckedPage>& pages, const std::string& path);

} // namespace preview
