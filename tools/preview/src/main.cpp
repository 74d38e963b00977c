#include "animation.h"
#include "check.h"
#include "file.h"
#include "fonts.h"
#include "html.h"
#include "interruption.h"
#include "options.h"
#include "report.h"
#include "root.h"
#include "sheet.h"
#include "show.h"
#include "splash.h"
#include "watch.h"

#include <exception>
#include <functional>
#include <iostream>
#include <stdexcept>

namespace {

using namespace preview;

std::optional<Texts> textsOf(const Options& options) {
    if (options.texts.empty()) {
        return {};
    }
    return Texts{options.texts[0], options.texts[1]};
}

/// What one output suffers does not keep the others from being written.
bool attempt(const std::function<void()>& write) {
    try {
        write();
        return true;
    } catch (const Interrupted&) {
        throw;
    } catch (const std::exception& error) {
        std::cerr << "bootlume-preview: " << error.what() << '\n';
        return false;
    }
}

int writePictures(Splash& splash, const Options& options) {
    splash.start(textsOf(options));
    bool done = options.png.empty() || attempt([&] {
                    writePng(splash.frame(static_cast<std::uint64_t>(options.frame)), options.png);
                });
    if (!options.animation.empty()) {
        std::vector<Picture> turn;
        for (std::uint64_t index = 0; index < TURN; ++index) {
            turn.push_back(splash.frame(index));
        }
        done = attempt([&] { writeAnimation(turn, FRAME_MS, options.animation); }) && done;
    }
    return done ? EXIT_DONE : EXIT_FAILED;
}

int checkCatalogue(Splash& splash, const std::string& catalogue, const Options& options) {
    const std::vector<CheckedPage> pages = check(splash, readCatalogue(catalogue));
    if (options.json) {
        writeJson(std::cout, catalogue, pages);
    } else {
        writeTable(std::cout, catalogue, pages);
    }
    std::cout.flush();
    bool written = options.sheet.empty() || attempt([&] { writeSheet(pages, options.sheet); });
    if (!options.html.empty()) {
        written = attempt([&] { writeFile(htmlOf(catalogue, pages), options.html); }) && written;
    }
    if (!written) {
        return EXIT_FAILED;
    }
    return countFindings(pages, Severity::ERROR) == 0 ? EXIT_DONE : EXIT_FINDINGS;
}

std::string named(const std::string& file) {
    return file.empty() ? "" : " " + file;
}

/// A catalogue that cannot be read now may be whole the next time.
[[noreturn]] void watchCatalogue(Splash& splash, Options options) {
    if (options.sheet.empty() && options.html.empty()) {
        options.sheet = "bootlume-sheet.png";
    }
    watch(options.watch, [&] {
        int status = EXIT_FAILED;
        attempt([&] { status = checkCatalogue(splash, options.watch, options); });
        if (status != EXIT_FAILED) {
            std::cout << "written:" << named(options.sheet) << named(options.html) << std::endl;
        }
    });
}

std::vector<ShownPage> pagesToShow(const Options& options) {
    if (options.pages.empty()) {
        return {{textsOf(options), options.chinese, ""}};
    }
    std::vector<ShownPage> shown;
    const std::vector<Page> pages = readCatalogue(options.pages);
    for (const Page& page : pages) {
        const std::string refusal = page.broken.empty() ? startRefusal(page) : page.broken;
        if (!refusal.empty()) {
            throw std::runtime_error(options.pages + ", row " + std::to_string(page.row) + ": " +
                                     refusal);
        }
        shown.push_back({Texts{page.title, page.lines}, isChinese(page),
                         "page " + std::to_string(shown.size() + 1) + " of " +
                             std::to_string(pages.size()) + " (" + page.language + ")"});
    }
    return shown;
}

int run(const Options& options) {
    const Installation installation = locate(options.bootlume, options.virtualDevice);
    const Root root(options.root);
    useDeviceFonts(installation.bootlume);
    useFonts(options.fontLatin, options.fontChinese, root.path());
    Splash splash(installation, root);
    splash.setChinese(options.chinese);
    if (!options.check.empty()) {
        return checkCatalogue(splash, options.check, options);
    }
    if (!options.watch.empty()) {
        watchCatalogue(splash, options);
    }
    if (!options.png.empty() || !options.animation.empty()) {
        return writePictures(splash, options);
    }
    return show(splash, {pagesToShow(options), options.picture, options.terminal,
                         "other texts: " + clientCommand(root.path()) + " text TITLE LINE..."});
}

} // namespace

int main(int argc, char* argv[]) {
    try {
        Options options;
        if (const std::optional<int> status = parseOptions(argc, argv, options)) {
            return *status;
        }
        catchSignals();
        return run(options);
    } catch (const Interrupted& interrupted) {
        dieOf(interrupted.number());
    } catch (const std::exception& error) {
        std::cerr << "bootlume-preview: " << error.what() << '\n';
        return EXIT_FAILED;
    }
}
