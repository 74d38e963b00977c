#pragma once

#include <cstdint>

namespace Trace {

// A higher level is a less important, more talkative message.
constexpr std::int32_t LEVEL_ALL = 0;
constexpr std::int32_t LEVEL_FATAL = 1;
constexpr std::int32_t LEVEL_ERROR = 2;
constexpr std::int32_t LEVEL_WARN = 3;
constexpr std::int32_t LEVEL_INFO = 4;
constexpr std::int32_t LEVEL_DEBUG = 5;
constexpr std::int32_t LEVEL_VERBOSE = 6;

constexpr std::int32_t MAX_LEVEL_NAME = 7;
constexpr std::int32_t MAX_LEVEL_COLOR = 7;
inline constexpr const char* LEVEL_NAMES[MAX_LEVEL_NAME] = {"ALL",  "FATAL", "ERROR",  "WARN",
                                                            "INFO", "DEBUG", "VERBOSE"};
inline constexpr const char* LEVEL_COLORS[MAX_LEVEL_COLOR] = {
    "\033[0;39;49m", "\033[1;31m", "\033[1;31m", "\033[1;33m",
    "\033[0;39;49m", "\033[1;36m", "\033[1;36m"};

} // namespace Trace
