#include "support/emulation.h"
#include "support/report.h"
#include "support/runner.h"

#include <gmock/gmock.h>

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

using testing::Contains;
using testing::ElementsAre;

namespace {

/// Holds the creator of a thread up until it returns true, or for so many looks: the thread has
/// time to run, and what waits for its creator is not waited for.
std::function<bool()> creatorMayGoOn;
constexpr int MOST_LOOKS = 20000;

std::atomic<pid_t> lastSignalled{0};

class TheResult : public RunnerTest {
protected:
    std::string script(const std::string& text) const {
        return m_folder.write("script", "#!/bin/sh\n" + text + "\n");
    }
};

/// A sanitizer makes a thread of its own beside a copy's first one: have that behind us. A thread
/// counts until its entry is gone.
void makeFirstThread() {
    std::atomic<pid_t> id{0};
    std::thread([&] { id = gettid(); }).join();
    EXPECT_TRUE(eventually(
        [&] { return !std::filesystem::exists("/proc/self/task/" + std::to_string(id)); }));
}

/// Lets the caller's user have the threads that the caller has, and so many more, until the next
/// call.
void leaveRoomFor(rlim_t more) {
    rlim_t threads = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        static_cast<void>(thread);
        ++threads;
    }
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NPROC, &limit), 0);
    limit.rlim_cur = threads + more;
    ASSERT_EQ(setrlimit(RLIMIT_NPROC, &limit), 0);
}

TEST_F(TheResult, IsTheExitCode) {
    EXPECT_EQ(run({script("exit 0")}), 0);
    EXPECT_EQ(run({script("exit 3")}), 3);
    EXPECT_EQ(run({script("exit 255")}), 255);
    EXPECT_FALSE(hasChild());
}

TEST_F(TheResult, IsMinusOneForAChildThatStopEnds) {
    brem::Process process(&m_dispatcher, {script("echo ready; exec sleep 100")}, false);
    std::thread stopper([&] {
        EXPECT_TRUE(eventually([&] { return !texts().empty() && startedChild() != 0; }));
        process.stop();
    });
    EXPECT_EQ(run(process), -1);
    stopper.join();
    EXPECT_THAT(texts(), Contains("Function: stop"));
    EXPECT_FALSE(hasChild());
}

TEST_F(TheResult, IsThatOfAChildWhichStopLetsCleanUp) {
    const std::string busy = "echo ready; while :; do sleep 0.01; done";
    brem::Process process(&m_dispatcher, {script("trap 'exit 7' TERM; " + busy)}, false);
    std::thread stopper([&] {
        EXPECT_TRUE(eventually(
            [&] { return testing::Matches(Contains(testing::EndsWith(": ready")))(texts()); }));
        process.stop();
    });
    EXPECT_EQ(run(process), 7);
    stopper.join();
}

TEST_F(TheResult, LeavesNobodyForStopToSignal) {
    brem::Process process(&m_dispatcher, {script("exit 0")}, false);
    EXPECT_EQ(run(process), 0);
    lastSignalled = 0;
    process.stop();
    EXPECT_EQ(lastSignalled, 0);
}

TEST_F(TheResult, IsMinusOneForAChildThatIsKilled) {
    EXPECT_EQ(run({script("kill -9 $$")}), -1);
}

TEST_F(TheResult, IsOneForAMissingProgramWhichIsNamedOnItsErrorStream) {
    EXPECT_EQ(run({"/missing/program"}), 1);
    EXPECT_THAT(texts(),
                Contains("/missing/program: stderr: boost::process::detail::posix_start: execve(2) "
                         "failed: No such file or directory"));
}

TEST_F(TheResult, IsOneForAFolderAndForAFileWithoutTheRunBit) {
    const std::string text =
        ": stderr: boost::process::detail::posix_start: execve(2) failed: Permission denied";
    EXPECT_EQ(run({m_folder.path()}), 1);
    EXPECT_THAT(texts(), Contains(m_folder.path() + text));
    const std::string plain = m_folder.write("plain", "#!/bin/sh\nexit 0\n", 0644);
    EXPECT_EQ(run({plain}), 1);
    EXPECT_THAT(texts(), Contains(plain + text));
}

TEST_F(TheResult, IsMinusOneWhereNoProcessCanBeMade) {
    SKIP_UNDER_EMULATION("the emulator does not pass process limits on");
    isolated([&] {
        makeFirstThread();
        if (!becomeUnprivileged()) {
            GTEST_SKIP() << "only root can take an id that no other process has";
        }
        leaveRoomFor(1); // for the worker
        EXPECT_EQ(run({"/bin/true"}), -1);
        EXPECT_THAT(texts(), ElementsAre("Function: start", "start command: /bin/true ",
                                         "failed to start RTQ: , e.what() = "
                                         "boost::process::detail::posix_start: fork(2) failed: "
                                         "Resource temporarily unavailable",
                                         "Function: sendResult"));
        EXPECT_EQ(lines()[2].level, "ERROR:");
    });
}

TEST_F(TheResult, IsMinusOneWhereNoThreadCanBeMade) {
    SKIP_UNDER_EMULATION("the emulator does not pass process limits on");
    isolated([&] {
        makeFirstThread();
        if (!becomeUnprivileged()) {
            GTEST_SKIP() << "only root can take an id that no other process has";
        }
        leaveRoomFor(0);
        brem::Process process(&m_dispatcher, {"/bin/true"}, false);
        EXPECT_EQ(run(process), -1);
        EXPECT_EQ(run(process), -1) << "it did not become idle again";
        EXPECT_EQ(texts().size(), 6U);
        EXPECT_EQ(texts()[1].substr(0, 20), "failed to start RTQ:");
    });
}

TEST_F(TheResult, IsMinusOneWithoutAnyArgument) {
    EXPECT_EQ(run(std::vector<std::string>()), -1);
}

TEST_F(TheResult, OfAFailedStartIsThatOfTheRunBefore) {
    SKIP_UNDER_EMULATION("the emulator does not pass process limits on");
    isolated([&] {
        makeFirstThread();
        if (!becomeUnprivileged()) {
            GTEST_SKIP() << "only root can take an id that no other process has";
        }
        brem::Process process(&m_dispatcher, {script("exit 3")}, false);
        EXPECT_EQ(run(process), 3);
        leaveRoomFor(1);
        EXPECT_EQ(run(process), 3);
    });
}

TEST_F(TheResult, ComesOnTheDispatchersThread) {
    brem::Process process(&m_dispatcher, {script("exit 0")}, false);
    std::thread::id where;
    process.start([&](int) {
        where = std::this_thread::get_id();
        m_dispatcher.stop();
    });
    runDispatcher();
    EXPECT_EQ(where, std::this_thread::get_id());
    const std::vector<LogLine> all = lines();
    ASSERT_FALSE(all.empty());
    EXPECT_EQ(all.back().text, "Function: sendResult");
    EXPECT_EQ(all.back().thread, "bl-dispatcher");
}

TEST_F(TheResult, IsForgottenWhereTheCallbackIsEmpty) {
    brem::Process process(&m_dispatcher, {script("exit 0")}, false);
    process.start(nullptr);
    std::thread stopper([&] {
        EXPECT_TRUE(eventually([&] {
            const auto all = texts();
            return !all.empty() && all.back() == "Function: sendResult";
        }));
        m_dispatcher.stop();
    });
    runDispatcher();
    stopper.join();
    EXPECT_EQ(run(process), 0);
}

TEST_F(TheResult, IsAwaitedBeforeASecondStart) {
    const std::string marks = m_folder.file("marks");
    brem::Process process(&m_dispatcher, {script("echo run >> " + marks + "; exit 3")}, false);
    std::vector<int> results;
    const auto note = [&](int code) {
        results.push_back(code);
        m_dispatcher.stop();
    };
    process.start(note);
    process.start([](int) { ADD_FAILURE() << "the second callback was kept"; });
    runDispatcher();
    EXPECT_THAT(results, ElementsAre(3));
    int warnings = 0;
    for (const LogLine& line : lines()) {
        if (line.text == "already running") {
            ++warnings;
            EXPECT_EQ(line.level, "WARN:");
        }
    }
    EXPECT_EQ(warnings, 1);
    EXPECT_EQ(contentsOf(marks), "run\n");

    EXPECT_EQ(run(process), 3) << "it cannot be used again";
    EXPECT_EQ(contentsOf(marks), "run\nrun\n");
}

TEST_F(TheResult, MayStartTheProgramAgain) {
    brem::Process process(&m_dispatcher, {script("exit 4")}, false);
    int second = NO_RESULT;
    process.start([&](int) {
        process.start([&](int code) {
            second = code;
            m_dispatcher.stop();
        });
    });
    runDispatcher();
    EXPECT_EQ(second, 4);
}

TEST_F(TheResult, FindsItsWorkerThoughItsStartHasNotReturned) {
    std::thread loop([&] { runDispatcher(); });
    brem::Process process(&m_dispatcher, {}, false);
    for (int run = 1; run <= 2; ++run) {
        std::atomic<bool> delivered{false};
        creatorMayGoOn = [&] { return delivered.load(); };
        process.start([&](int) { delivered = true; });
        creatorMayGoOn = nullptr;
        EXPECT_TRUE(eventually([&] { return delivered.load(); }))
            << "run " << run << ": the worker before was not joined";
    }
    m_dispatcher.stop();
    loop.join();
}

TEST_F(TheResult, AlwaysComesToAnOwnerOnAnotherThread) {
    std::thread loop([&] { runDispatcher(); });
    // Nothing to run: the worker ends at once, often before start() has come back.
    brem::Process process(&m_dispatcher, {}, false);
    for (int i = 0; i < 300; ++i) {
        std::atomic<int> result{NO_RESULT};
        process.start([&](int code) { result = code; });
        ASSERT_TRUE(eventually([&] { return result == -1; })) << "run " << i;
    }
    m_dispatcher.post([this] { m_dispatcher.stop(); });
    loop.join();
}

} // namespace

// In front of the C library's, or of a sanitizer's.
extern "C" int kill(pid_t process, int number) noexcept {
    lastSignalled = process;
    return static_cast<int>(syscall(SYS_kill, process, number));
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*body)(void*), void* argument) noexcept {
    using Create = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static auto* const create = reinterpret_cast<Create*>(dlsym(RTLD_NEXT, "pthread_create"));
    const int result = create(thread, attributes, body, argument);
    for (int looks = 0; creatorMayGoOn && !creatorMayGoOn() && looks < MOST_LOOKS; ++looks) {
        sched_yield();
    }
    return result;
}
