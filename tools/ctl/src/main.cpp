#include "arguments.h"

#include <CLI/CLI.hpp>

#include <iostream>

// NOLINTNEXTLINE(bugprone-exception-escape): what escapes here is a mistake in the options
int main(int argc, char* argv[]) {
    ctl::Arguments arguments;
    CLI::App app("Talks to the boot splash.", "bootlumectl");
    ctl::describe(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ctl::EXIT_DONE : ctl::EXIT_USAGE;
    }
    arguments.places.socket = arguments.root + arguments.places.socket;
    arguments.places.traceConfig = arguments.root + arguments.places.traceConfig;
    if (arguments.quiet) {
        std::cout.rdbuf(nullptr);
        std::cerr.rdbuf(nullptr);
    }
    return arguments.command();
}
