#pragma once

#include <string>
#include <utility>
#include <vector>

/// A renderer without a display, linked in the real one's place: it only keeps the texts.
namespace recorded_overlay {

using Texts = std::vector<std::pair<std::string, std::string>>;

/// The titles and lines of all setText() calls; for one thread at a time.
extern Texts texts;

} // namespace recorded_overlay
