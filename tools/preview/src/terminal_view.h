#pragma once

#include <string>

namespace preview {

class Viewer;

/// Shows the page in the terminal until the person leaves. `why` tells why there is no window;
/// `hint` stands below the page while there is no message. The texts, which are too small to be
/// read there, stand beside it where there is room.
void showInTerminal(Viewer& viewer, const std::string& why, const std::string& hint);

} // namespace preview
