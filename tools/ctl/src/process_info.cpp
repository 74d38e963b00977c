#include "process_info.h"

#include <unistd.h>

#include <ctime>
#include <fstream>
#include <sstream>
#include <string>

namespace client {

std::optional<Process> findProcess(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!std::getline(file, text)) {
        return {};
    }
    // The name, in parentheses, may hold blanks and parentheses of its own.
    const auto nameEnd = text.rfind(')');
    if (nameEnd == std::string::npos) {
        return {};
    }
    std::istringstream fields(text.substr(nameEnd + 1));
    std::string state;
    std::string skipped;
    Process process{pid, 0, false};
    fields >> state;
    constexpr int BEFORE_START = 18;
    for (int i = 0; i < BEFORE_START; ++i) {
        fields >> skipped;
    }
    fields >> process.startTicks;
    process.stopped = state == "T" || state == "t";
    const bool ended = state == "Z" || state == "X" || state == "x";
    if (!fields || ended) {
        return {};
    }
    return process;
}

bool isAlive(const Process& process) {
    const std::optional<Process> now = findProcess(process.pid);
    return now && now->startTicks == process.startTicks;
}

double ageInSeconds(const Process& process) {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const double uptime = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
    const auto ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    return uptime - static_cast<double>(process.startTicks) / ticks;
}

} // namespace client
