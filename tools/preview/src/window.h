#pragma once

#include <string>

namespace preview {

class Viewer;

/// True where there is a display to open a window on.
bool hasDisplay();

/// Shows the page in a window of its size until it is closed. False, with the reason, where no
/// window can be opened after all.
bool showInWindow(Viewer& viewer, std::string& why);

} // namespace preview
