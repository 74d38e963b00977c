// A disabled trace statement against an empty loop, and a written line against spdlog's synchronous
// logger, which writes the same text to a pipe.
#include "tracing.h"

#include <benchmark/benchmark.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

namespace {

/// Standard output as a pipe that a thread drains.
class DrainedPipe {
public:
    DrainedPipe() : m_saved(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        if (pipe(m_ends) != 0 || dup2(m_ends[1], STDOUT_FILENO) < 0) {
            std::abort();
        }
        close(m_ends[1]);
        fcntl(m_ends[0], F_SETPIPE_SZ, 1 << 20);
        m_thread = std::thread([this] {
            static char buffer[1 << 16];
            while (read(m_ends[0], buffer, sizeof buffer) > 0) {
            }
        });
    }
    ~DrainedPipe() {
        std::fflush(stdout);
        dup2(m_saved, STDOUT_FILENO);
        close(m_saved);
        m_thread.join();
        close(m_ends[0]);
    }
    DrainedPipe(const DrainedPipe&) = delete;
    DrainedPipe& operator=(const DrainedPipe&) = delete;

private:
    int m_saved;
    int m_ends[2] = {-1, -1};
    std::thread m_thread;
};

void emptyLoop(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::ClobberMemory();
    }
}
BENCHMARK(emptyLoop);

void disabledStatement(benchmark::State& state) {
    int value = 7;
    for (auto _ : state) {
        TRACE(Trace::LEVEL_DEBUG, "a message" << TRACE_VALUE(value));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(disabledStatement);

void writtenLine(benchmark::State& state) {
    const DrainedPipe pipe;
    int value = 7;
    for (auto _ : state) {
        TRACE(Trace::LEVEL_INFO, "reboot started with result: " << TRACE_VALUE(value));
    }
}
BENCHMARK(writtenLine);

void writtenLineSpdlog(benchmark::State& state) {
    const DrainedPipe pipe;
    auto logger = std::make_shared<spdlog::logger>(
        "bench", std::make_shared<spdlog::sinks::stdout_sink_mt>());
    logger->set_pattern("[%Y%m%d-%H%M%S:%e] (%P) (          bench) %7l:\t| %v| %s:%#");
    logger->flush_on(spdlog::level::info);
    int value = 7;
    for (auto _ : state) {
        logger->log(spdlog::source_loc{__FILE__, __LINE__, "f"}, spdlog::level::info,
                    "reboot started with result: , value = {}", value);
    }
}
BENCHMARK(writtenLineSpdlog);

void maskTest(benchmark::State& state) {
    Trace::Log::s_configuration.masks.set(
        Trace::MaskWords::Words(static_cast<std::size_t>(state.range(0)), 0x80004));
    for (auto _ : state) {
        benchmark::DoNotOptimize(Trace::Log::isMaskEnabled(Trace::TRACE_MASK_DISPATCHER));
    }
    Trace::Log::s_configuration.masks.set({});
}
BENCHMARK(maskTest)->Arg(0)->Arg(1)->Arg(10)->Arg(100)->Arg(1000);

} // namespace

BENCHMARK_MAIN();
