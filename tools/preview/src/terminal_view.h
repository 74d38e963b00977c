#pragma once

#include "splash.h"

#include <optional>
#include <string>

namespace preview {

class Viewer;

/// Shows the page in the terminal until the person leaves. `why` tells why there is no window. The
/// texts, which are too small to be read there, stand beside it where there is room.
void showInTerminal(Viewer& viewer, const std::optional<Texts>& texts, const std::string& why);

} // namespace preview
