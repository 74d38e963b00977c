/// \file
/// Waiting for an event, with a deadline.
#pragma once

#include <chrono>
#include <thread>

/// Calls `look` until it is true; false where that takes longer than a busy machine can.
template <typename Look>
bool eventually(Look look) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!look()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}
