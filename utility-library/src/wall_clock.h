#pragma once

#include <time.h>

#include <chrono>

namespace brem {

/// The wall clock, also from 2038 on: on a 32-bit device the C++ library's own system_clock::now()
/// gives no time then. Any thread.
struct WallClock : std::chrono::system_clock {
    static time_point now() {
        timespec time{};
        clock_gettime(CLOCK_REALTIME, &time);
        const auto sinceEpoch =
            std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
        return time_point(std::chrono::duration_cast<duration>(sinceEpoch));
    }
};

} // namespace brem
