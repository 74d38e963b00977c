/// \file
/// Looks through a catalogue for texts that would not look right.
#pragma once

#include "catalogue.h"
#include "measure.h"
#include "picture.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace preview {

class Splash;

enum class Severity { WARNING, ERROR };

struct Finding {
    Severity severity;
    std::string kind;       ///< a word for programs; the manual lists them
    int line;               ///< line of the body from 1, 0 for the title, -1 for the whole page
    std::string what;       ///< a sentence for people
    std::optional<Box> box; ///< where on the page
};

struct CheckedPage {
    Page page;
    std::vector<Finding> findings;
    std::vector<MeasuredText> texts; ///< the title first, then the lines; empty without a picture
    std::optional<Picture> picture;  ///< nothing where the program cannot be started with the texts
};

/// Why the program cannot be started with these texts, as a sentence; empty where it can.
std::string startRefusal(const Page& page);

/// Lets the program draw each page, and looks at what it drew. Throws what the splash throws.
std::vector<CheckedPage> check(Splash& splash, const std::vector<Page>& pages);

std::size_t countFindings(const CheckedPage& page, Severity severity);
std::size_t countFindings(const std::vector<CheckedPage>& pages, Severity severity);

} // namespace preview
