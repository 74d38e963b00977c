#include "arguments.h"

#include <iostream>

// NOLINTNEXTLINE(bugprone-exception-escape): what escapes here is a mistake in the options
int main(int argc, char* argv[]) {
    ctl::Arguments arguments;
    if (const auto status = ctl::parseArguments(argc, argv, arguments)) {
        return *status;
    }
    arguments.places.socket = arguments.root + arguments.places.socket;
    arguments.places.traceConfig = arguments.root + arguments.places.traceConfig;
    if (arguments.quiet) {
        std::cout.rdbuf(nullptr);
        std::cerr.rdbuf(nullptr);
    }
    return arguments.command();
}
