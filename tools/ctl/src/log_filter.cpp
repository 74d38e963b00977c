#include "log_filter.h"

#include <regex>
#include <sstream>

namespace ctl {
namespace {

const std::string COMMAND = "Got Message from socket, command = ";
const char* const REBOOT_PROGRAM = "generator"; // the thread that logs what it writes

/// A whole line of the splash, of the service manager about it, or of what reads the log: a further
/// line of a text is none of them.
bool isWhole(const std::string& line) {
    static const std::regex whole(
        R"(bootlume(\[\d+\])?: (\x1b\[[\d;]*m)?\[\d{8}-\d{6}:\d{3}\] \(\d+\) \()"
        R"(|bootlume(\[\d+\])?: [A-Z]+\|[\w/.-]+:\d+:)"
        R"(|bootlume(\[\d+\])?: (bind|socket) error)"
        R"(|^\S+ +\d+ [\d:]+ systemd\[1\]: |^-- |^sh: )");
    return std::regex_search(line, whole);
}

} // namespace

std::string withoutTexts(const std::string& log) {
    std::istringstream lines(log);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        if (!isWhole(line) || line.find(REBOOT_PROGRAM) != std::string::npos) {
            continue;
        }
        const auto text = line.find(COMMAND);
        if (text != std::string::npos) {
            line.replace(text + COMMAND.size(), std::string::npos, "(not shown)");
        }
        kept += line + "\n";
    }
    return kept;
}

} // namespace ctl
