/// \file
/// bootlumectl's command line.
#pragma once

#include "commands.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

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

/// Tells the parser of the commands and options, and what it says of a wrong one. What is parsed
/// lands in `arguments`, which the parser must not outlive.
void describe(CLI::App& app, Arguments& arguments);

} // namespace ctl
