/// \file
/// Looks through a catalogue for texts that would not look right.
#pragma once

#include "catalogue.h"
#include "measure.h"

#include <optional>
#include <string>
#include <vector>

namespace preview {

struct Finding {
    std::string kind;       ///< "right", "ring", "bottom", "glyph", "command" or "row"
    int line = -1;          ///< line of the body from 1, 0 for the title, -1 for the whole page
    std::string what;       ///< a sentence for people
    std::optional<Box> box; ///< where on the page
};

struct CheckedPage {
    Page page;
    std::vector<Finding> findings;
    bool drawable; ///< the program can be started with these texts
};

std::vector<CheckedPage> check(const std::vector<Page>& pages);

} // namespace preview
