/// \file
/// What each of bootlumectl's commands does. Each returns the exit status.
#pragma once

#include "trace_entry.h"

#include <string>
#include <vector>

namespace ctl {

enum ExitStatus {
    EXIT_DONE = 0,
    EXIT_FAILED = 1,
    EXIT_USAGE = 2,
    EXIT_NO_SPLASH = 3,
    EXIT_TIMED_OUT = 4,
};

/// Where the splash is.
struct Places {
    std::string socket;
    std::string traceConfig;
};

int quit(const Places& places, double timeoutSeconds, bool wait);
int text(const Places& places, const std::string& title, const std::vector<std::string>& lines);
int status(const Places& places);
int trace(const Places& places, const TraceWish& wish);

} // namespace ctl
