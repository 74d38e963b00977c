/// \file
/// bootlumectl's command line.
#pragma once

#include "commands.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ctl {

/// All that a command line may say.
struct Arguments {
    std::string root;
    Places places{"/tmp/.bootlume", "/opt/userdata/trace_config"};
    bool quiet = false;
    QuitOptions quit;
    std::string title;
    std::vector<std::string> lines;
    bool json = false;
    std::string level;
    std::vector<std::string> masks;
    bool toSyslog = false;
    bool toStdout = false;
    std::optional<double> seconds;

    std::function<int()> command; ///< set by the parsing
};

/// Reads the command line into `arguments`. Nothing if a command is to be run; else all has been
/// said, and the exit status is returned. What the parser itself throws is a mistake in the
/// options.
std::optional<int> parseArguments(int argc, char* argv[], Arguments& arguments);

} // namespace ctl
