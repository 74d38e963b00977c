/// \file
/// What each of bootlumectl's commands does. Each returns the exit status.
#pragma once

#include "messages.h"
#include "trace_entry.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace ctl {

/// Where the splash is.
struct Places {
    std::string socket;
    std::string traceConfig;
};

struct QuitOptions {
    double timeoutSeconds = 10; ///< 0: no limit
    bool wait = false;          ///< for a splash that has not come up yet
    bool ifRunning = false;     ///< no splash is no error
};

int quit(const Places& places, const QuitOptions& options);
int text(const Places& places, const std::string& title, const std::vector<std::string>& lines);
int status(const Places& places, bool asJson);

/// What status() finds, as one line of JSON.
std::string statusAsJson(const Places& places);

/// With a time, waits so long and puts the entry back, also if it is told to end before.
int trace(const Places& places, const TraceWish& wish,
          const std::optional<std::chrono::milliseconds>& time);

int report(const Places& places);

} // namespace ctl
