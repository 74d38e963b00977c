#pragma once

#include "viewer.h"

#include <string>
#include <vector>

namespace preview {

class Splash;

struct ShowRequest {
    std::vector<ShownPage> pages; ///< at least one
    std::string pictureFile;      ///< takes the first picture; may be empty
    bool inTerminal = false;      ///< display or not
    std::string hint;             ///< a line for people, before all else
};

/// Shows the pages, in a window or in the terminal, until the person leaves or the splash is ended.
/// The exit status.
int show(Splash& splash, const ShowRequest& request);

} // namespace preview
