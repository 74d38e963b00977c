#include "animation.h"
#include "check.h"
#include "fonts.h"
#include "interruption.h"
#include "options.h"
#include "report.h"
#include "sheet.h"
#include "splash.h"
#include "terminal_view.h"
#include "viewer.h"
#include "window.h"

#include <unistd.h>

#include <exception>
#include <iostream>

namespace {

using namespace preview;

std::optional<Texts> textsOf(const Options& options) {
    if (options.texts.empty())
        return {};
    return Texts{options.texts[0], options.texts[1]};
}

int writePictures(Splash& splash, const Options& options) {
    splash.start(textsOf(options));
    if (!options.png.empty())
        writePng(splash.frame(static_cast<std::uint64_t>(options.frame)), options.png);
    if (!options.animation.empty()) {
        std::vector<Picture> turn;
        for (std::uint64_t index = 0; index < TURN; ++index)
            turn.push_back(splash.frame(index));
        writeAnimation(turn, FRAME_MS, options.animation);
    }
    return EXIT_DONE;
}

int checkCatalogue(Splash& splash, const Options& options) {
    const std::vector<CheckedPage> pages = check(splash, readCatalogue(options.check));
    if (options.json) {
        writeJson(std::cout, options.check, pages);
    } else {
        writeTable(std::cout, options.check, pages);
    }
    if (!options.sheet.empty()) {
        writeSheet(pages, options.sheet);
    }
    return countFindings(pages, Severity::ERROR) == 0 ? EXIT_DONE : EXIT_FINDINGS;
}

/// Where the page can be shown nowhere, a picture of it is what a person can have.
int showNowhere(Splash& splash, const Options& options, const std::string& why) {
    if (options.picture.empty()) {
        std::cerr << "bootlume-preview: " << why
                  << ", and standard output is no terminal: the page can be shown nowhere (--png "
                     "FILE writes a picture)\n";
        return EXIT_FAILED;
    }
    Viewer viewer(splash, options.picture);
    while (viewer.next() == nullptr)
        throwIfInterrupted();
    std::cout << why << ", and no terminal to show the page in\n" << viewer.message() << '\n';
    return EXIT_DONE;
}

int show(Splash& splash, const Options& options) {
    const std::optional<Texts> texts = textsOf(options);
    splash.start(texts);
    std::string why = options.terminal ? "as asked for" : "no display";
    if (!options.terminal && hasDisplay()) {
        Viewer viewer(splash, options.picture);
        if (showInWindow(viewer, why))
            return EXIT_DONE;
        why = "no window can be opened: " + why;
    }
    if (isatty(STDOUT_FILENO) == 0)
        return showNowhere(splash, options, why);
    Viewer viewer(splash, options.picture);
    std::cout << why << ": the page is shown in the terminal" << std::endl;
    showInTerminal(viewer, texts, why);
    if (!viewer.message().empty())
        std::cout << viewer.message() << '\n';
    return EXIT_DONE;
}

int run(const Options& options) {
    const Installation installation = locate(options.bootlume, options.virtualDevice);
    const TemporaryRoot root;
    useDeviceFonts(installation.bootlume);
    useFonts(options.fontLatin, options.fontChinese, root.path());
    Splash splash(installation, root);
    if (options.chinese)
        splash.setChinese(true);
    if (!options.check.empty())
        return checkCatalogue(splash, options);
    if (!options.png.empty() || !options.animation.empty())
        return writePictures(splash, options);
    return show(splash, options);
}

} // namespace

int main(int argc, char* argv[]) {
    Options options;
    if (const std::optional<int> status = parseOptions(argc, argv, options))
        return *status;
    catchSignals();
    try {
        return run(options);
    } catch (const Interrupted& interrupted) {
        dieOf(interrupted.number());
    } catch (const std::exception& error) {
        std::cerr << "bootlume-preview: " << error.what() << '\n';
        return EXIT_FAILED;
    }
}
