#include "connection/unix_server.h"

#include "support/isolated.h"
#include "support/traced_test.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

namespace {

std::atomic<bool> pollFails{false};
std::atomic<bool> pollsAreEndless{false};
std::atomic<int> failedPolls{0};

} // namespace

/// Stands before the C library's.
extern "C" int poll(pollfd* waits, nfds_t count, int timeout) {
    if (pollFails) {
        ++failedPolls;
        errno = ENOMEM;
        return -1;
    }
    static const auto next =
        reinterpret_cast<int (*)(pollfd*, nfds_t, int)>(dlsym(RTLD_NEXT, "poll"));
    return next(waits, count, pollsAreEndless && timeout > 0 ? -1 : timeout);
}

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto DEADLINE = 10s;
constexpr std::size_t LONGEST_ADDRESS = 107;
const char* const NOTHING_READ = "Nothing read from the socket. Quitting.";

/// Sends one datagram over a socket; false if nobody serves the address.
bool sendOver(int descriptor, const std::string& path, const std::string& data) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, LONGEST_ADDRESS);
    const int room = 1 << 20;
    setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    const ssize_t sent = sendto(descriptor, data.data(), data.size(), 0,
                                reinterpret_cast<const sockaddr*>(&address), sizeof address);
    return sent == static_cast<ssize_t>(data.size());
}

bool sendTo(const std::string& path, const std::string& data) {
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool sent = sendOver(descriptor, path, data);
    close(descriptor);
    return sent;
}

bool serves(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, LONGEST_ADDRESS);
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool connected =
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(descriptor);
    return connected;
}

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

/// A server on a thread of its own, and what it has received.
class Served {
public:
    explicit Served(const std::string& path)
        : server(path, [this](const std::string& text) { take(text); }), m_path(path) {}
    ~Served() {
        server.stop();
        join();
    }
    Served(const Served&) = delete;
    Served& operator=(const Served&) = delete;

    void run() {
        m_thread = std::thread([this] { server.run(); });
    }
    /// Returns once the socket is bound.
    void runBound() {
        run();
        const auto deadline = Clock::now() + DEADLINE;
        while (!serves(m_path) && Clock::now() < deadline) {
            std::this_thread::yield();
        }
    }
    void join() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    std::vector<std::string> wait(std::size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, DEADLINE, [&] { return m_texts.size() >= count; });
        return m_texts;
    }
    pthread_t thread() { return m_thread.native_handle(); }

    cmd::UnixServer server;

private:
    void take(const std::string& text) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_texts.push_back(text);
        m_changed.notify_all();
    }

    std::string m_path;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_texts;
};

class UnixServer : public TracedTest {
protected:
    UnixServer() { Trace::Log::s_configuration.level = Trace::LEVEL_DEBUG; }

    ScratchFolder m_folder;
    const std::string m_path = m_folder.file("socket");
};

TEST_F(UnixServer, HandsEveryDatagramOverAsItCame) {
    Served served(m_path);
    served.runBound();
    const std::vector<std::string> sent = {"QUIT",
                                           "QUIT\n",
                                           std::string("a\0b\0", 4),
                                           " blanks ",
                                           std::string(1000, 'x'),
                                           std::string(100'000, 'y')};
    for (const std::string& text : sent) {
        ASSERT_TRUE(sendTo(m_path, text));
    }
    EXPECT_EQ(served.wait(sent.size()), sent);
    EXPECT_EQ(lines()[0], line("DEBUG", "Got Message from socket, command = QUIT",
                               "connection/unix_server.cpp"));
}

TEST_F(UnixServer, TakesADatagramWithoutBytesForOneQuitAndServesOn) {
    Served served(m_path);
    served.runBound();
    ASSERT_TRUE(sendTo(m_path, ""));
    ASSERT_TRUE(sendTo(m_path, "next"));
    EXPECT_THAT(served.wait(2), testing::ElementsAre("QUIT", "next"));
    EXPECT_EQ(lines()[0], line("ERROR", NOTHING_READ, "connection/unix_server.cpp"));
}

TEST_F(UnixServer, CutsALongPathToItsFirst107Bytes) {
    const std::string longPath = m_path + std::string(150 - m_path.size(), 'p');
    Served served(longPath);
    served.runBound();
    ASSERT_TRUE(sendTo(longPath.substr(0, LONGEST_ADDRESS), "cut"));
    EXPECT_THAT(served.wait(1), testing::ElementsAre("cut"));
    EXPECT_TRUE(std::filesystem::is_socket(longPath.substr(0, LONGEST_ADDRESS)));
}

TEST_F(UnixServer, RemovesWhatLiesAtTheWholePathAndNotAtTheCutOne) {
    const std::string longPath = m_path + std::string(150 - m_path.size(), 'p');
    std::ofstream(longPath) << "whole";
    std::ofstream(longPath.substr(0, LONGEST_ADDRESS)) << "cut";
    testing::internal::CaptureStderr();
    Served served(longPath);
    served.run();
    served.join(); // by itself: it cannot bind
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "bind error: Address already in use\n");
    EXPECT_FALSE(std::filesystem::exists(longPath));
    EXPECT_TRUE(std::filesystem::is_regular_file(longPath.substr(0, LONGEST_ADDRESS)));
}

TEST_F(UnixServer, ReplacesTheSocketOfAnEarlierServerWhichHearsNothingMore) {
    Served first(m_path);
    first.runBound();
    struct stat before {};
    ASSERT_EQ(stat(m_path.c_str(), &before), 0);
    Served second(m_path);
    second.run();
    struct stat now = before;
    for (const auto deadline = Clock::now() + DEADLINE;
         now.st_ino == before.st_ino && Clock::now() < deadline;) {
        stat(m_path.c_str(), &now);
    }
    for (const auto deadline = Clock::now() + DEADLINE;
         !sendTo(m_path, "second") && Clock::now() < deadline;) {
    }
    EXPECT_THAT(second.wait(1), testing::ElementsAre("second"));
    EXPECT_THAT(first.wait(0), testing::IsEmpty());
}

TEST_F(UnixServer, LeavesItsFileBehind) {
    { Served(m_path).runBound(); }
    EXPECT_TRUE(std::filesystem::is_socket(m_path));
    EXPECT_FALSE(serves(m_path));
}

TEST_F(UnixServer, LeavesTheConstructorsSocketOpen) {
    const std::size_t before = openDescriptors();
    {
        const cmd::UnixServer idle(m_path, [](const std::string&) {});
        EXPECT_EQ(openDescriptors(), before + 1);
    }
    EXPECT_EQ(openDescriptors(), before) << "one that never ran leaves nothing";
    { Served(m_path).runBound(); }
    EXPECT_EQ(openDescriptors(), before + 1);
}

TEST_F(UnixServer, EndsItsWaitWhenItIsStopped) {
    pollsAreEndless = true; // who ends all the same was woken
    Served served(m_path);
    served.runBound();
    served.server.stop();
    served.join();
    pollsAreEndless = false;
    EXPECT_THAT(served.wait(0), testing::IsEmpty()) << "an end is no message";
    EXPECT_THAT(lines(), testing::IsEmpty());
}

TEST_F(UnixServer, IsNotBoundWhereItIsStoppedBeforeItRuns) {
    testing::internal::CaptureStderr();
    Served served(m_path);
    served.server.stop();
    served.run();
    served.join();
    EXPECT_FALSE(std::filesystem::exists(m_path));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(UnixServer, MayBeStoppedAtAnyMomentOfItsStart) {
    testing::internal::CaptureStderr();
    for (int i = 0; i < 500; ++i) {
        Served served(m_path);
        served.run();
        served.server.stop();
        served.join();
        EXPECT_THAT(served.wait(0), testing::IsEmpty());
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(lines(), testing::IsEmpty());
}

TEST_F(UnixServer, MayBeStoppedWhileMessagesPourIn) {
    // One for all: a new one may get the number of the server's just before that is polled once
    // more.
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    for (int i = 0; i < 50; ++i) {
        Served served(m_path);
        served.runBound();
        std::thread sender([&] {
            while (sendOver(descriptor, m_path, "message")) {
            }
        });
        served.wait(3);
        served.server.stop();
        served.join();
        sender.join();
        EXPECT_THAT(served.wait(0), testing::Each(std::string("message")));
    }
    close(descriptor);
    EXPECT_THAT(lines(), testing::Not(testing::Contains(testing::HasSubstr(NOTHING_READ))));
}

void ignore(int) {}

TEST_F(UnixServer, PassesOverAnInterruptedWait) {
    struct sigaction interrupting {};
    struct sigaction before {};
    interrupting.sa_handler = ignore;
    ASSERT_EQ(sigaction(SIGUSR1, &interrupting, &before), 0);
    Served served(m_path);
    served.runBound();
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(pthread_kill(served.thread(), SIGUSR1), 0);
    }
    ASSERT_TRUE(sendTo(m_path, "after"));
    EXPECT_THAT(served.wait(1), testing::ElementsAre("after"));
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(UnixServer, BreathesWhileItsWaitFailsAndMissesNoDatagram) {
    Served served(m_path);
    served.runBound();
    pollFails = true;
    ASSERT_TRUE(sendTo(m_path, "first"));
    served.wait(1); // may have ended the wait that was under way
    const auto start = Clock::now();
    const int before = failedPolls;
    while (failedPolls < before + 100 && Clock::now() < start + DEADLINE) {
        std::this_thread::yield();
    }
    EXPECT_GE(Clock::now() - start, 95ms) << "about a millisecond between two";
    ASSERT_TRUE(sendTo(m_path, "second"));
    pollFails = false;
    EXPECT_THAT(served.wait(2), testing::ElementsAre("first", "second"));
}

TEST_F(UnixServer, TellsWhereNoSocketCanBeMade) {
    isolated([this] {
        testing::internal::CaptureStderr();
        limitDescriptors(0);
        cmd::UnixServer server(m_path, [](const std::string&) {});
        server.run();
        limitDescriptors(1000);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "socket error: Too many open files\nsocket error: Too many open files\n");
    });
    EXPECT_FALSE(std::filesystem::exists(m_path));
}

TEST_F(UnixServer, TriesAgainInRunWhereTheConstructorHadNoSocket) {
    isolated([this] {
        testing::internal::CaptureStderr();
        limitDescriptors(0);
        Served served(m_path);
        limitDescriptors(1000);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "socket error: Too many open files\n");
        served.runBound();
        ASSERT_TRUE(sendTo(m_path, "message"));
        EXPECT_THAT(served.wait(1), testing::ElementsAre("message"));
    });
}

TEST_F(UnixServer, ThrowsWhereThereIsNoCallback) {
    cmd::UnixServer server(m_path, nullptr);
    std::thread sender([this] {
        for (const auto deadline = Clock::now() + DEADLINE;
             !sendTo(m_path, "message") && Clock::now() < deadline;) {
        }
    });
    EXPECT_THROW(server.run(), std::bad_function_call);
    sender.join();
}

TEST_F(UnixServer, TracesEachWaitAtTheLevelForThat) {
    Trace::Log::s_configuration.level = Trace::LEVEL_VERBOSE;
    Served served(m_path);
    served.runBound();
    ASSERT_TRUE(sendTo(m_path, "message"));
    served.wait(1);
    served.server.stop();
    served.join();
    EXPECT_EQ(lines()[0], line("VERBOSE", "Polling socket.", "connection/unix_server.cpp"));
}

} // namespace
