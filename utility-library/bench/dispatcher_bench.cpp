// A million messages from one thread to another through the dispatcher, against GLib's main loop
// and Boost.Asio; and how late a delayed message is, against a timerfd.
#include "dispatcher.h"
#include "glib_loop.h"

#include <benchmark/benchmark.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

namespace {

void postToRun(benchmark::State& state) {
    const auto count = state.range(0);
    for (auto _ : state) {
        brem::Dispatcher dispatcher;
        std::int64_t seen = 0;
        std::thread poster([&] {
            for (std::int64_t i = 0; i < count; ++i) {
                dispatcher.post([&] {
                    if (++seen == count) {
                        dispatcher.stop();
                    }
                });
            }
        });
        dispatcher.run();
        poster.join();
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(postToRun)->RangeMultiplier(10)->Range(1, 1000000)->UseRealTime();

void postToRunGlib(benchmark::State& state) {
    for (auto _ : state) {
        GlibLoop::postAndRun(state.range(0));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(postToRunGlib)->Arg(1000000)->UseRealTime();

void postToRunAsio(benchmark::State& state) {
    const auto count = state.range(0);
    for (auto _ : state) {
        boost::asio::io_context context;
        auto work = boost::asio::make_work_guard(context);
        std::int64_t seen = 0;
        std::thread poster([&] {
            for (std::int64_t i = 0; i < count; ++i) {
                boost::asio::post(context, [&] {
                    if (++seen == count) {
                        work.reset();
                    }
                });
            }
        });
        context.run();
        poster.join();
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(postToRunAsio)->Arg(1000000)->UseRealTime();

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds DELAY{20};
constexpr int LATENESS_RUNS = 300;

void report(benchmark::State& state, std::vector<double>& late) {
    std::sort(late.begin(), late.end());
    state.counters["late_median_us"] = late[late.size() / 2];
    state.counters["late_p999_us"] = late[late.size() * 999 / 1000];
}

double microseconds(Clock::duration time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

void delayedLateness(benchmark::State& state) {
    std::vector<double> late;
    brem::Dispatcher dispatcher;
    std::thread loop([&] { dispatcher.run(); });
    for (auto _ : state) {
        for (int i = 0; i < LATENESS_RUNS; ++i) {
            std::atomic<bool> done{false};
            const auto due = Clock::now() + DELAY;
            dispatcher.postDelayed(DELAY, [&] {
                late.push_back(microseconds(Clock::now() - due));
                done = true;
            });
            while (!done) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    }
    dispatcher.shutdown();
    loop.join();
    report(state, late);
}
BENCHMARK(delayedLateness)->Iterations(1)->UseRealTime();

void timerfdLateness(benchmark::State& state) {
    std::vector<double> late;
    const int timer = timerfd_create(CLOCK_MONOTONIC, 0);
    for (auto _ : state) {
        for (int i = 0; i < LATENESS_RUNS; ++i) {
            const auto due = Clock::now() + DELAY;
            const itimerspec once{{0, 0}, {0, std::chrono::nanoseconds(DELAY).count()}};
            timerfd_settime(timer, 0, &once, nullptr);
            std::uint64_t expirations = 0;
            if (read(timer, &expirations, sizeof expirations) != sizeof expirations) {
                state.SkipWithError("the timer cannot be read");
            }
            late.push_back(microseconds(Clock::now() - due));
        }
    }
    close(timer);
    report(state, late);
}
BENCHMARK(timerfdLateness)->Iterations(1)->UseRealTime();

/// One post and its run while so many delayed messages wait.
void postWhileOthersWait(benchmark::State& state) {
    brem::Dispatcher dispatcher;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        dispatcher.postDelayed(std::chrono::minutes(60), [] {});
    }
    for (auto _ : state) {
        dispatcher.shutdown();
        dispatcher.run();
    }
}
BENCHMARK(postWhileOthersWait)->RangeMultiplier(10)->Range(1, 10000);

} // namespace

BENCHMARK_MAIN();
