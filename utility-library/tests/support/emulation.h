#pragma once

#include <gtest/gtest.h>

#include <cstdlib>

/// Skips a test where a user-mode emulator runs the program, which then sees more than the
/// program's own doing. To be written in the test's body.
#define SKIP_UNDER_EMULATION(REASON)                                                               \
    do {                                                                                           \
        if (std::getenv("BOOTLUME_EMULATED") != nullptr) {                                         \
            GTEST_SKIP() << "under emulation: " << (REASON);                                       \
        }                                                                                          \
    } while (false)
