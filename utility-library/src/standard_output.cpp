#include "standard_output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>

namespace Trace {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::int64_t FOR_EVER = -1;
constexpr int NONE = -1;
// What a pipe that can be written to takes without waiting.
constexpr std::size_t PIECE = PIPE_BUF;

std::atomic<std::int64_t> s_longestWait{FOR_EVER};
bool s_stalled = false; // the reader took nothing for the longest wait
bool s_cut = false;     // the last line has no end
int s_terminal = NONE;

/// Whether standard output takes something within the time. An error is for the write to meet.
bool takesWithin(milliseconds time) {
    const Clock::time_point end = Clock::now() + time;
    for (milliseconds left = time;; left = std::chrono::ceil<milliseconds>(end - Clock::now())) {
        pollfd output{STDOUT_FILENO, POLLOUT, 0};
        const int ready =
            poll(&output, 1, static_cast<int>(std::max(left, milliseconds(0)).count()));
        if (ready >= 0 || errno != EINTR) {
            return ready != 0;
        }
    }
}

void write(const char* text, std::size_t length) {
    std::fwrite(text, 1, length, stdout);
    std::fflush(stdout);
}

/// A terminal may say that it takes something and then make a line wait, its end above all, as it
/// has room for a few characters only. So it is written to through an opening that never waits.
int openTerminal() {
    return isatty(STDOUT_FILENO) == 0
               ? NONE
               : open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

/// Writes what is taken without waiting; returns how much that is. What meets an error is lost.
std::size_t writeSome(const char* text, std::size_t length) {
    if (s_terminal == NONE) {
        const std::size_t piece = std::min(PIECE, length);
        write(text, piece);
        return piece;
    }
    const ssize_t written = ::write(s_terminal, text, length);
    if (written >= 0) {
        return static_cast<std::size_t>(written);
    }
    return errno == EAGAIN || errno == EINTR ? 0 : length;
}

} // namespace

void limitWaitForReader(milliseconds longest) {
    s_longestWait = longest.count();
    if (s_terminal != NONE) {
        close(s_terminal);
    }
    s_terminal = longest.count() == FOR_EVER ? NONE : openTerminal();
}

void writeToStandardOutput(const char* text, std::size_t length) {
    const std::int64_t longest = s_longestWait;
    if (longest == FOR_EVER) {
        write(text, length);
        return;
    }
    for (std::size_t done = 0; done < length;) {
        const bool ends = s_cut; // first comes the end of the line that was cut
        std::size_t taken = 0;
        if (takesWithin(milliseconds(s_stalled ? 0 : longest))) {
            taken = ends ? writeSome("\n", 1) : writeSome(text + done, length - done);
        }
        s_stalled = taken == 0;
        if (s_stalled) {
            s_cut = s_cut || done > 0;
            return;
        }
        s_cut = false;
        done += ends ? 0 : taken;
    }
}

} // namespace Trace
