// A number from the environment.
#include "fuzzing.h"

#include "server/globals.h"
#include "tracing.h"

#include <cerrno>
#include <climits>

namespace {

/// The same number by another road.
int expectedNumber(const char* text, int defaultValue) {
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text, &end, 10);
    const bool fits = errno == 0 && number >= INT_MIN && number <= INT_MAX;
    return end != text && fits ? static_cast<int>(number) : defaultValue;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    discardOutput();
    Trace::Log::s_configuration.level = Trace::LEVEL_VERBOSE;
    const std::string text = textOf(data, size).c_str(); // up to the first zero byte
    // Not setenv(): the C library never frees what that takes.
    std::string variable = std::string(SPLASH_TIMEOUT) + "=" + text;
    require(putenv(variable.data()) == 0, "the variable is set");
    require(getEnvParameter(SPLASH_TIMEOUT, 180) == expectedNumber(text.c_str(), 180),
            "the number that the text begins with, or the default");
    require(getEnvParameter(SPLASH_TIMEOUT, std::string("x")) == text, "the text as it is");
    require(unsetenv(SPLASH_TIMEOUT) == 0, "the variable is gone before its text is");
    return 0;
}
