#pragma once

#include "check.h"
#include "picture.h"

#include <optional>
#include <string>
#include <vector>

namespace preview {

/// Puts the pages side by side, findings marked, and writes the sheet as a PNG. `pictures` are the
/// pages as drawn, nothing where one cannot be. Throws std::runtime_error.
void writeSheet(const std::vector<CheckedPage>& pages,
                const std::vector<std::optional<Picture>>& pictures, const std::string& path);

} // namespace preview
