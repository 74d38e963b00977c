#include "options.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <iostream>
#include <utility>

namespace preview {
namespace {

const char* const ABOUT =
    "Shows the page of the boot splash as the device shows it, drawn by bootlume itself.\n"
    "Without options it opens a window, or shows the page in the terminal where there is no\n"
    "display. Keys: q or Escape to quit, p for a picture, l to switch the language.\n";
const char* const FOOTER =
    "A title that begins with a dash goes behind \"--\".\n"
    "\n"
    "A catalogue has a page a line: language, title and lines, separated by tabs. A language\n"
    "that begins with zh is drawn as Chinese. Empty lines and lines with # in front are skipped.\n"
    "\n"
    "Exit status:\n"
    "  0  done\n"
    "  1  the catalogue has errors\n"
    "  2  the command line\n"
    "  3  something cannot be drawn, read or written (the reason is on standard error)";

void addPictures(CLI::App& app, Options& options) {
    const char* const group = "Pictures";
    CLI::Option* const png =
        app.add_option("--png", options.png,
                       "Write the page as a PNG, and end; - is standard output")
            ->type_name("FILE")
            ->group(group);
    app.add_option("--animation", options.animation,
                   "Write one turn of the ring, at its true speed, as a WebP, and end")
        ->type_name("FILE")
        ->group(group);
    app.add_option("--frame", options.frame, "Frame of --png, from 0; the pictures repeat after 66")
        ->check(CLI::Range(0, 1000000000).description(""))
        ->type_name("N")
        ->needs(png)
        ->group(group);
    app.add_option("--picture", options.picture, "Write the page as a PNG, and go on showing it")
        ->type_name("FILE")
        ->group(group);
}

void addCheck(CLI::App& app, Options& options) {
    const char* const group = "Catalogues";
    app.add_option("--pages", options.pages, "Show the pages of a catalogue; n and b turn them")
        ->type_name("CATALOGUE")
        ->group(group);
    CLI::Option* const check =
        app.add_option("--check", options.check, "Look for texts that would not look right")
            ->type_name("CATALOGUE")
            ->group(group);
    app.add_flag("--json", options.json, "Report as JSON")->needs(check)->group(group);
    app.add_option("--sheet", options.sheet,
                   "Write all pages side by side, findings marked, as a "
                   "PNG")
        ->type_name("FILE")
        ->needs(check)
        ->group(group);
}

void addPlaces(CLI::App& app, Options& options) {
    const char* const group = "Fonts and programs";
    app.add_option("--font-latin", options.fontLatin,
                   "Font file to draw with in place of Univers Next W1G Medium")
        ->type_name("FILE")
        ->group(group);
    app.add_option("--font-chinese", options.fontChinese,
                   "Font file to draw with in place of Droid Sans Fallback")
        ->type_name("FILE")
        ->group(group);
    app.add_option("--root", options.root,
                   "Folder that the splash takes for the device's root; kept afterwards")
        ->type_name("FOLDER")
        ->group(group);
    app.add_option("--bootlume", options.bootlume, "The program (or BOOTLUME_PROGRAM)")
        ->type_name("FILE")
        ->group(group);
    app.add_option("--virtual-device", options.virtualDevice,
                   "libvirtual-device.so (or BOOTLUME_VIRTUAL_DEVICE)")
        ->type_name("FILE")
        ->group(group);
}

/// What the library cannot check, as a sentence; empty where all is well.
std::string complaintAbout(const Options& options) {
    if (options.texts.size() == 1)
        return "give a title and lines, or neither";
    if (!options.texts.empty() && options.texts[0].compare(0, 2, "-c") == 0)
        return "bootlume takes a title that begins with -c for an option";
    const bool pages = !options.texts.empty() || !options.png.empty() ||
                       !options.animation.empty() || !options.picture.empty();
    if (!options.pages.empty() && (!options.texts.empty() || !options.check.empty() ||
                                   !options.png.empty() || !options.animation.empty())) {
        return "--pages shows the pages of a catalogue; it goes without texts, --check, --png and "
               "--animation";
    }
    if (!options.check.empty() && pages)
        return "--check draws the pages of the catalogue; it goes without texts and pictures";
    for (const auto& [file, kind] : {std::pair{&options.png, ".png"},
                                     {&options.picture, ".png"},
                                     {&options.sheet, ".png"},
                                     {&options.animation, ".webp"}}) {
        const std::string extension = std::filesystem::path(*file).extension().string();
        if (!extension.empty() && extension != kind) {
            return *file + ": what is written there is a " + kind + ", not a " + extension;
        }
    }
    for (const std::string* file : {&options.picture, &options.sheet, &options.animation}) {
        if (*file == "-") {
            return "only --png writes to standard output";
        }
    }
    return {};
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
    addCheck(app, options);
    addPlaces(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    if (first->count() > 0)
        options.texts.push_back(title);
    if (second->count() > 0)
        options.texts.push_back(lines);
    const std::string complaint = complaintAbout(options);
    if (!complaint.empty()) {
        std::cerr << "bootlume-preview: " << complaint << '\n';
        return EXIT_USAGE;
    }
    return {};
}

} // namespace preview
