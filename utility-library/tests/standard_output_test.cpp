#include "standard_output.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds SHORT(20);
constexpr milliseconds LONG(60000);
constexpr milliseconds DEADLINE(30000);

/// Whether the thread of this process is asleep; not before it has named itself.
bool waits(pid_t id) {
    std::ifstream stat("/proc/self/task/" + std::to_string(id) + "/stat");
    std::string text;
    return id != 0 && std::getline(stat, text) && text.find(") S ") != std::string::npos;
}

/// Standard output is a pipe; what is in it can be taken at once.
class StandardOutput : public testing::Test {
protected:
    StandardOutput() : m_saved(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        if (pipe2(m_ends, O_CLOEXEC) != 0 || dup2(m_ends[1], STDOUT_FILENO) < 0) {
            throw std::runtime_error("standard output cannot be a pipe");
        }
        close(m_ends[1]);
        fcntl(m_ends[0], F_SETFL, O_NONBLOCK);
    }
    ~StandardOutput() override {
        Trace::limitWaitForReader(milliseconds(-1));
        std::fflush(stdout);
        dup2(m_saved, STDOUT_FILENO);
        if (HasFailure()) {
            std::fputs(take().c_str(), stderr); // what failed was told on standard output
        }
        close(m_saved);
        close(m_ends[0]);
    }
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    static void write(const std::string& text) {
        Trace::writeToStandardOutput(text.data(), text.size());
    }
    /// Takes what is there, at most so much.
    std::string take(std::size_t most = 1 << 20) const {
        std::string text(most, '\0');
        const ssize_t length = read(m_ends[0], text.data(), text.size());
        text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
        return text;
    }
    std::size_t capacity() const {
        return static_cast<std::size_t>(fcntl(m_ends[0], F_GETPIPE_SZ));
    }
    /// Takes until a text that ends so has come.
    std::string takeUntil(const std::string& end) const {
        std::string text;
        const auto last = steady_clock::now() + DEADLINE;
        while ((text.size() < end.size() ||
                text.compare(text.size() - end.size(), end.size(), end) != 0) &&
               steady_clock::now() < last) {
            text += take();
        }
        return text;
    }

private:
    int m_saved;
    int m_ends[2]{-1, -1};
};

TEST_F(StandardOutput, TakesALineOfAnyLengthWhole) {
    for (const bool limited : {false, true}) {
        Trace::limitWaitForReader(limited ? LONG : milliseconds(-1));
        const std::string line = std::string(3 * capacity(), 'x') + "end\n";
        std::thread writer([&] { write(line); });
        EXPECT_EQ(takeUntil("end\n"), line);
        writer.join();
    }
}

TEST_F(StandardOutput, WaitsForASlowReaderWithinTheLimit) {
    Trace::limitWaitForReader(LONG);
    write(std::string(capacity(), 'x'));
    std::atomic<pid_t> id{0};
    std::thread writer([&] {
        id = gettid();
        write("line\n");
    });
    bool waiting = false;
    for (const auto last = steady_clock::now() + DEADLINE; !waiting && steady_clock::now() < last;
         waiting = waits(id)) {
        std::this_thread::yield();
    }
    // Before anything is told, which goes the same way.
    const std::string taken = takeUntil("line\n");
    EXPECT_TRUE(waiting);
    EXPECT_TRUE(taken == std::string(capacity(), 'x') + "line\n");
    writer.join();
}

TEST_F(StandardOutput, DropsLinesThatNobodyTakesAfterOneWait) {
    Trace::limitWaitForReader(SHORT);
    write(std::string(capacity(), 'x'));
    const auto begin = steady_clock::now();
    write("lost\n");
    EXPECT_GE(steady_clock::now() - begin, SHORT);
    // Each of these would wait for a minute.
    Trace::limitWaitForReader(LONG);
    for (int i = 0; i < 1000; ++i) {
        write("lost, too\n");
    }
    EXPECT_LT(steady_clock::now() - begin, LONG);
    EXPECT_EQ(take(), std::string(capacity(), 'x'));
    write("next\n");
    EXPECT_EQ(take(), "next\n");
}

TEST_F(StandardOutput, EndsALineThatWasCutBeforeTheNextOne) {
    Trace::limitWaitForReader(SHORT);
    write(std::string(capacity() + 1, 'x'));
    EXPECT_EQ(take(), std::string(capacity(), 'x'));
    write("next\n");
    EXPECT_EQ(take(), "\nnext\n");
}

TEST_F(StandardOutput, WaitsAnewOnceTheReaderHasTakenSomething) {
    Trace::limitWaitForReader(SHORT);
    write(std::string(capacity(), 'x'));
    write("lost\n");
    take();
    Trace::limitWaitForReader(LONG);
    write(std::string(capacity(), 'y'));
    std::thread writer([&] { write("line\n"); });
    EXPECT_EQ(takeUntil("line\n"), std::string(capacity(), 'y') + "line\n");
    writer.join();
}

/// Opens a terminal that adds a carriage return to each end of a line, as terminals do, and makes
/// it standard output; what is written to it is to be read from the descriptor that is returned.
int becomeTerminal() {
    const int reader = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    char name[64];
    if (reader < 0 || grantpt(reader) != 0 || unlockpt(reader) != 0 ||
        ptsname_r(reader, name, sizeof name) != 0) {
        throw std::runtime_error("there is no terminal");
    }
    const int terminal = open(name, O_WRONLY | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 || dup2(terminal, STDOUT_FILENO) < 0) {
        throw std::runtime_error("standard output cannot be a terminal");
    }
    close(terminal);
    return reader;
}

TEST_F(StandardOutput, DropsLinesThatATerminalHasNoRoomFor) {
    const int reader = becomeTerminal();
    Trace::limitWaitForReader(SHORT);
    alarm(20); // where a line is waited for, the test is ended
    // Lines of all lengths: one of them meets the last of the room with its end.
    for (std::size_t length = 1; length < 1000; ++length) {
        write(std::string(length, 'x') + "\n");
    }
    std::string taken;
    write("last\n"); // lost
    for (bool asked = false; taken.find("next\r\n") == std::string::npos;) {
        char text[4096];
        const ssize_t length = read(reader, text, sizeof text);
        if (length > 0) {
            taken.append(text, static_cast<std::size_t>(length));
        } else if (!asked) { // all is taken
            write("next\n");
            asked = true;
        }
    }
    alarm(0);
    EXPECT_EQ(taken.find("last"), std::string::npos);
    EXPECT_EQ(taken.find("xn"), std::string::npos) << "the next line stands alone";
    close(reader);
}

} // namespace
