#pragma once

#include "picture.h"

#include <string>
#include <vector>

namespace preview {

/// Writes the pictures as an animated WebP that goes round for ever, without loss, each shown for
/// `frameMs`. Throws std::runtime_error.
void writeAnimation(const std::vector<Picture>& pictures, int frameMs, const std::string& path);

} // namespace preview
