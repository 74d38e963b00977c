// How late a delayed message runs, against a timerfd, by turns. Prints the medians as JSON.
//
//   lateness_bench RUNS
#include "dispatcher.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds DELAY{20};

double sinceDue(Clock::time_point begin) {
    return std::chrono::duration<double, std::micro>(Clock::now() - begin - DELAY).count();
}

double messageLateness(brem::Dispatcher& dispatcher) {
    double late = 0;
    const auto begin = Clock::now();
    dispatcher.postDelayed(DELAY, [&] {
        late = sinceDue(begin);
        dispatcher.stop();
    });
    dispatcher.run();
    return late;
}

double timerLateness(int timer) {
    const itimerspec once{{0, 0}, {0, std::chrono::nanoseconds(DELAY).count()}};
    const auto begin = Clock::now();
    std::uint64_t expirations = 0;
    if (timerfd_settime(timer, 0, &once, nullptr) != 0 ||
        read(timer, &expirations, sizeof expirations) != sizeof expirations) {
        std::perror("timerfd");
        std::exit(EXIT_FAILURE);
    }
    return sinceDue(begin);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::atoi(argv[1]) : 200;
    if (runs <= 0) {
        std::fputs("usage: lateness_bench RUNS\n", stderr);
        return 2;
    }
    const int timer = timerfd_create(CLOCK_MONOTONIC, 0);
    brem::Dispatcher dispatcher;
    std::vector<double> messages;
    std::vector<double> timers;
    for (int i = 0; i < runs; ++i) {
        messages.push_back(messageLateness(dispatcher));
        timers.push_back(timerLateness(timer));
    }
    close(timer);
    std::printf("{\"message_us\": %.2f, \"timerfd_us\": %.2f}\n", median(messages), median(timers));
    return EXIT_SUCCESS;
}
