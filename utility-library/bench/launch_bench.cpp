// What a launch costs, next to posix_spawn of the same program in the same run.
#include "boost/process/operations.h"

#include <benchmark/benchmark.h>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <vector>

namespace {

namespace process = boost::process;

using Seconds = std::chrono::duration<double>;

bool tooSlow = false;
long pretendedLimit = 0; ///< what sysconf says of the descriptor limit; 0: the truth

/// Sets the limit of descriptors; false without the right to raise the hard limit.
bool setDescriptorLimit(rlim_t limit) {
    rlimit limits{};
    getrlimit(RLIMIT_NOFILE, &limits);
    limits.rlim_cur = limit;
    limits.rlim_max = std::max(limits.rlim_max, limit);
    return setrlimit(RLIMIT_NOFILE, &limits) == 0;
}

void spawnAndWait() {
    static const char* const arguments[] = {LAUNCHED, nullptr};
    pid_t pid = 0;
    int flags = 0;
    if (posix_spawn(&pid, LAUNCHED, nullptr, nullptr, const_cast<char**>(arguments), environ) !=
            0 ||
        waitpid(pid, &flags, 0) != pid || flags != 0) {
        std::cerr << "posix_spawn of " << LAUNCHED << " failed\n";
        std::abort();
    }
}

void launchAndWait() {
    process::basic_context context;
    context.environment = process::current_environment();
    context.stdin_behavior = process::stream_behavior::inherit;
    context.stdout_behavior = process::stream_behavior::inherit;
    context.stderr_behavior = process::stream_behavior::inherit;
    const process::status status = process::launch(LAUNCHED, {LAUNCHED}, context).wait();
    if (!status.exited() || status.exit_status() != 0) {
        std::cerr << "the launch of " << LAUNCHED << " failed\n";
        std::abort();
    }
}

double timed(void (*run)()) {
    const auto begin = std::chrono::steady_clock::now();
    run();
    return Seconds(std::chrono::steady_clock::now() - begin).count();
}

double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// By turns, so that whatever else the machine does strikes both. The time shown is the launch's.
void launchAgainstSpawn(benchmark::State& state) {
    const auto limit = static_cast<rlim_t>(state.range(0));
    const double bound = static_cast<double>(state.range(1)) / 100;
    // Without the right to raise the limit, the launch layer is at least told that it is that high.
    const bool pretended = !setDescriptorLimit(limit);
    pretendedLimit = pretended ? static_cast<long>(limit) : 0;
    std::vector<double> spawns;
    std::vector<double> launches;
    for (auto _ : state) {
        spawns.push_back(timed(spawnAndWait));
        launches.push_back(timed(launchAndWait));
        state.SetIterationTime(launches.back());
    }
    const double spawn = median(spawns);
    const double launch = median(launches);
    state.counters["spawn_us"] = spawn * 1e6;
    state.counters["launch_us"] = launch * 1e6;
    state.counters["ratio"] = launch / spawn;
    state.SetLabel(pretended ? "the limit is pretended" : "the limit is set");
    if (launch > bound * spawn) {
        tooSlow = true;
        std::cerr << "too slow: " << launch / spawn << " times posix_spawn, allowed are " << bound
                  << '\n';
    }
}

// The descriptor limit, and how many hundredths of posix_spawn's median a launch may take.
BENCHMARK(launchAgainstSpawn)
    ->ArgNames({"descriptors", "bound"})
    ->Args({1024, 150})
    ->Args({1048576, 160})
    ->Iterations(2000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

} // namespace

// In place of the C library's, for what the launch layer asks it.
extern "C" long __sysconf(int name) noexcept;
extern "C" long sysconf(int name) noexcept {
    return name == _SC_OPEN_MAX && pretendedLimit != 0 ? pretendedLimit : __sysconf(name);
}

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return tooSlow ? EXIT_FAILURE : EXIT_SUCCESS;
}
