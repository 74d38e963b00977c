// From the launch of a child to its first line: logged by the process runner, against posix_spawn
// with a pipe, by turns. Prints the medians as JSON.
//
//   first_line_bench RUNS
#include "dispatcher.h"
#include "process.h"
#include "tracing.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr const char* CHILD = "/bin/echo";

void need(bool good, const char* what) {
    if (!good) {
        std::perror(what);
        std::exit(EXIT_FAILURE);
    }
}

/// Reads until the text has come.
Clock::time_point timeOf(int descriptor, const std::string& text) {
    std::string seen;
    while (seen.find(text) == std::string::npos) {
        char buffer[4096];
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        need(count > 0, "the line did not come");
        seen.append(buffer, static_cast<std::size_t>(count));
    }
    return Clock::now();
}

double spawned() {
    int ends[2];
    need(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    const char* const arguments[] = {CHILD, "line", nullptr};
    const auto begin = Clock::now();
    pid_t pid = 0;
    need(posix_spawn(&pid, CHILD, &actions, nullptr, const_cast<char**>(arguments), environ) == 0,
         "posix_spawn");
    close(ends[1]);
    const auto end = timeOf(ends[0], "line\n");
    waitpid(pid, nullptr, 0);
    close(ends[0]);
    posix_spawn_file_actions_destroy(&actions);
    return Microseconds(end - begin).count();
}

/// The log goes to `output`, a pipe whose other end is read here.
double launched(int output) {
    brem::Dispatcher dispatcher;
    brem::Process process(&dispatcher, {CHILD, "line"}, false);
    const auto begin = Clock::now();
    process.start([&](int) { dispatcher.stop(); });
    const auto end = timeOf(output, "/bin/echo: stdout: line");
    dispatcher.run();
    return Microseconds(end - begin).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::atoi(argv[1]) : 200;
    need(runs > 0, "usage: first_line_bench RUNS");
    const int result = dup(STDOUT_FILENO);
    int ends[2];
    need(result >= 0 && pipe(ends) == 0 && dup2(ends[1], STDOUT_FILENO) >= 0, "a pipe");
    fcntl(result, F_SETFD, FD_CLOEXEC);
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    Trace::Log::s_configuration.level = Trace::LEVEL_DEBUG;
    std::vector<double> spawns;
    std::vector<double> launches;
    for (int i = 0; i < runs; ++i) {
        spawns.push_back(spawned());
        launches.push_back(launched(ends[0]));
    }
    dprintf(result, "{\"launch_us\": %.1f, \"spawn_us\": %.1f}\n", median(launches),
            median(spawns));
    return EXIT_SUCCESS;
}
