#include "standard_output.h"

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
// What a pipe that can be written to takes without waiting.
constexpr std::size_t PIECE = PIPE_BUF;

std::atomic<std::int64_t> s_longestWait{FOR_EVER};
bool s_stalled = false; // the reader took nothing for the longest wait
bool s_cut = false;     // the last line has no end

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

} // namespace

void limitWaitForReader(milliseconds longest) {
    s_longestWait = longest.count();
}

void writeToStandardOutput(const char* text, std::size_t length) {
    const std::int64_t longest = s_longestWait;
    if (longest == FOR_EVER) {
        write(text, length);
        return;
    }
    for (std::size_t done = 0; done < length;) {
        s_stalled = !takesWithin(milliseconds(s_stalled ? 0 : longest));
        if (s_stalled) {
            s_cut = s_cut || done > 0;
            return;
        }
        if (s_cut) {
            write("\n", 1);
            s_cut = false;
            continue; // the end of the old line may have been the last that was taken
        }
        const std::size_t piece = std::min(PIECE, length - done);
        write(text + done, piece);
        done += piece;
    }
}

} // namespace Trace
