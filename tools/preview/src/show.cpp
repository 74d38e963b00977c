#include "show.h"

#include "interruption.h"
#include "options.h"
#include "splash.h"
#include "terminal_view.h"
#include "window.h"

#include <unistd.h>

#include <iostream>

namespace preview {
namespace {

int statusOf(const Viewer& viewer) {
    return viewer.failed() ? EXIT_FAILED : EXIT_DONE;
}

/// Where the page can be shown nowhere, a picture of it is what a person can have.
int showNowhere(Viewer& viewer, const ShowRequest& request, const std::string& why) {
    if (request.pictureFile.empty()) {
        std::cerr << "bootlume-preview: " << why
                  << ", and standard output is no terminal: the page can be shown nowhere (--png "
                     "FILE writes a picture)\n";
        return EXIT_FAILED;
    }
    while (viewer.next() == nullptr) {
        throwIfInterrupted();
    }
    (viewer.failed() ? std::cerr : std::cout) << why << ", and no terminal to show the page in\n"
                                              << viewer.message() << '\n';
    return statusOf(viewer);
}

void showSomewhere(Viewer& viewer, const ShowRequest& request, bool& shown, std::string& why) {
    if (!request.inTerminal && hasDisplay()) {
        shown = showInWindow(viewer, why, request.hint);
        why = "no window can be opened: " + why;
    }
    if (!shown && isatty(STDOUT_FILENO) != 0) {
        shown = true;
        std::cout << why << ": the page is shown in the terminal\n" << request.hint << std::endl;
        showInTerminal(viewer, why, request.hint);
    }
}

} // namespace

int show(Splash& splash, const ShowRequest& request) {
    Viewer viewer(splash, request.pages, request.pictureFile);
    std::string why = request.inTerminal ? "as asked for" : "no display";
    bool shown = false;
    try {
        showSomewhere(viewer, request, shown, why);
    } catch (const EndedInOrder&) {
        std::cout << "the splash was ended in order" << std::endl;
        return statusOf(viewer);
    }
    return shown ? statusOf(viewer) : showNowhere(viewer, request, why);
}

} // namespace preview
