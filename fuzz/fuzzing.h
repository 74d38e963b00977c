#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

/// Runs one input. Any thread of the target's own may be alive between two inputs.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

inline std::string textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Ends the run with a message; stands in every build, unlike an assertion that may be switched
/// off.
inline void require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

/// Sends the trace lines away, so that all of them can be built.
inline void discardOutput() {
    static const bool done = std::freopen("/dev/null", "w", stdout) != nullptr;
    require(done, "standard output can be discarded");
}
