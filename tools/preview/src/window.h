#pragma once

#include <string>

namespace preview {

class Viewer;

/// True where there is a display to open a window on.
bool hasDisplay();

/// Shows the page in a window of its size, or of what the display has room for, until it is closed.
/// `hint` is written to standard output once there is one. False, with the reason, where no window
/// can be opened after all.
bool showInWindow(Viewer& viewer, std::string& why, const std::string& hint);

} // namespace preview
