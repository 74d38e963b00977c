#include "options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <iostream>
#include <utility>

namespace preview {
namespace {

const char* const ABOUT =
    "Shows the page of the boot splash as the device shows it, drawn by bootlume itself.\n"
    "Without options it opens a window, or shows the page in the terminal if there is no\n"
    "display. Keys: q or Escape to quit, p for a picture, l to switch the language.\n";
const char* const FOOTER =
    "A title that begins with a dash goes behind \"--\".\n"
    "\n"
    "A catalogue has a page a line: language, title and lines, separated by tabs; empty lines and\n"
    "lines with # in front are skipped. It may as well be a .csv file whose first row names these\n"
    "columns, or a .po file with messages such as \"Title;Lines\". A language that begins with zh\n"
    "is drawn as Chinese.\n"
    "\n"
    "Exit status:\n"
    "  0  done\n"
    "  1  the catalogue has errors\n"
    "  2  the command line\n"
    "  3  something cannot be drawn, read or written (the reason is on standard error)";

/// An option that names a file or a folder.
CLI::Option* addName(CLI::App& app, const char* option, std::string& name, const char* about,
                     const char* type, const char* group) {
    return app.add_option(option, name, about)
        ->check([](const std::string& given) { return given.empty() ? "an empty name" : ""; })
        ->type_name(type)
        ->group(group);
}

void addPictures(CLI::App& app, Options& options) {
    const char* const group = "Pictures";
    CLI::Option* const png =
        addName(app, "--png", options.png, "Write the page as a PNG, and end; - is standard output",
                "FILE", group);
    addName(app, "--animation", options.animation,
            "Write one turn of the ring, at its true speed, as a WebP, and end", "FILE", group);
    app.add_option("--frame", options.frame, "Frame of --png, from 0; the pictures repeat after 66")
        ->check(CLI::Range(0, 1000000000).description(""))
        ->type_name("N")
        ->needs(png)
        ->group(group);
    addName(app, "--picture", options.picture, "Write the page as a PNG, and go on showing it",
            "FILE", group);
}

void addCatalogues(CLI::App& app, Options& options) {
    const char* const group = "Catalogues";
    addName(app, "--pages", options.pages, "Show the pages of a catalogue; n and b turn them",
            "CATALOGUE", group);
    addName(app, "--check", options.check, "Look for texts that would not look right", "CATALOGUE",
            group);
    addName(app, "--watch", options.watch, "Check again whenever the catalogue is saved",
            "CATALOGUE", group);
    app.add_flag("--json", options.json, "Report as JSON")->group(group);
    addName(app, "--sheet", options.sheet,
            "Write all pages side by side, findings marked, as a PNG", "FILE", group);
    addName(app, "--html", options.html, "Write all pages with their texts and findings as HTML",
            "FILE", group);
}

void addPlaces(CLI::App& app, Options& options) {
    const char* const group = "Fonts and programs";
    addName(app, "--font-latin", options.fontLatin,
            "Font file to draw with in place of Univers Next W1G Medium", "FILE", group);
    addName(app, "--font-chinese", options.fontChinese,
            "Font file to draw with in place of Droid Sans Fallback", "FILE", group);
    addName(app, "--root", options.root,
            "Folder that the splash takes for the device's root; kept afterwards", "FOLDER", group);
    addName(app, "--bootlume", options.bootlume, "The program (or BOOTLUME_PROGRAM)", "FILE",
            group);
    addName(app, "--virtual-device", options.virtualDevice,
            "libvirtual-device.so (or BOOTLUME_VIRTUAL_DEVICE)", "FILE", group);
}

/// What is written where, by the name's extension.
std::string complaintAboutNames(const Options& options) {
    for (const auto& [file, kind] : {std::pair{&options.png, ".png"},
                                     {&options.picture, ".png"},
                                     {&options.sheet, ".png"},
                                     {&options.html, ".html"},
                                     {&options.animation, ".webp"}}) {
        const std::string extension = std::filesystem::path(*file).extension().string();
        if (!extension.empty() && extension != kind) {
            return *file + ": what is written there is a " + kind + ", not a " + extension;
        }
        if (*file == "-" && file != &options.png) {
            return "only --png writes to standard output";
        }
    }
    return {};
}

/// What the library cannot check, as a sentence; empty where all is well.
std::string complaintAbout(const Options& options) {
    if (options.texts.size() == 1) {
        return "give a title and lines, or neither";
    }
    if (!options.texts.empty() && options.texts[0].compare(0, 2, "-c") == 0) {
        return "bootlume takes a title that begins with -c for an option";
    }
    const std::initializer_list<bool> ways = {
        !options.texts.empty() || !options.png.empty() || !options.animation.empty(),
        !options.pages.empty(), !options.check.empty(), !options.watch.empty()};
    if (std::count(ways.begin(), ways.end(), true) > 1) {
        return "--pages, --check and --watch go without each other, and without texts, --png and "
               "--animation";
    }
    const bool checks = !options.check.empty() || !options.watch.empty();
    if (checks && !options.picture.empty()) {
        return "--picture takes a picture of the page that is shown; a check shows none";
    }
    if (!checks && (options.json || !options.sheet.empty() || !options.html.empty())) {
        return "--json, --sheet and --html go with --check or --watch";
    }
    return complaintAboutNames(options);
}

} // namespace

std::optional<int> parseOptions(int argc, char* argv[], Options& options) {
    CLI::App app(ABOUT, "bootlume-preview");
    app.set_version_flag("--version", "bootlume-preview " PROJECT_VERSION);
    app.footer(FOOTER);
    app.get_formatter()->column_width(28);
    std::string title;
    std::string lines;
    const CLI::Option* const first =
        app.add_option("TITLE", title, "Title; the program's own without it")->type_name("");
    const CLI::Option* const second =
        app.add_option("LINES", lines, "Lines below it, separated by \\n")->type_name("");
    app.add_flag("--chinese", options.chinese, "Set the device's language to Chinese");
    app.add_flag("--terminal", options.terminal, "Show it in the terminal, display or not");
    addPictures(app, options);
    addCatalogues(app, options);
    addPlaces(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    if (first->count() > 0) {
        options.texts.push_back(title);
    }
    if (second->count() > 0) {
        options.texts.push_back(lines);
    }
    const std::string complaint = complaintAbout(options);
    if (!complaint.empty()) {
        std::cerr << "bootlume-preview: " << complaint << '\n';
        return EXIT_USAGE;
    }
    return {};
}

} // namespace preview
