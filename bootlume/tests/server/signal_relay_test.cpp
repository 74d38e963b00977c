#include "server/signal_relay.h"

#include "support/waiting.h"
#include "thread_name.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/prctl.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string nameOfThisThread() {
    char name[16] = "";
    prctl(PR_GET_NAME, name, 0, 0, 0);
    return name;
}

std::ptrdiff_t threads() {
    const std::filesystem::directory_iterator all("/proc/self/task");
    return std::distance(begin(all), end(all));
}

/// What the relay hands on, for a test that waits for it.
class Receiver {
public:
    SignalRelay::Function function() {
        return [this](int sig) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_signals.push_back(sig);
            m_names.push_back(nameOfThisThread());
            m_threads.push_back(std::this_thread::get_id());
            m_changed.notify_all();
        };
    }

    std::vector<int> wait(std::size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(10),
                           [&] { return m_signals.size() >= count; });
        return m_signals;
    }

    std::vector<std::string> names() const { return m_names; }
    std::vector<std::thread::id> threads() const { return m_threads; }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<int> m_signals;
    std::vector<std::string> m_names;
    std::vector<std::thread::id> m_threads;
};

SignalRelay* handlersRelay = nullptr;

void handler(int sig) {
    handlersRelay->raise(sig);
}

TEST(SignalRelay, HandsEverySignalOnOnceOnItsOwnThread) {
    Receiver receiver;
    SignalRelay relay;
    relay.start(receiver.function());
    relay.raise(SIGINT);
    relay.raise(SIGINT);
    relay.raise(SIGHUP);
    EXPECT_THAT(receiver.wait(3), testing::UnorderedElementsAre(SIGINT, SIGINT, SIGHUP));
    relay.stop();
    EXPECT_THAT(receiver.threads(), testing::Each(testing::Ne(std::this_thread::get_id())));
    EXPECT_EQ(receiver.wait(3).size(), 3U);
}

TEST(SignalRelay, BearsTheNameOfTheThreadThatTookTheSignal) {
    Receiver receiver;
    SignalRelay relay;
    relay.start(receiver.function());
    std::thread taker([&] {
        brem::nameThisThread("fifteen letters");
        relay.raise(SIGINT);
    });
    taker.join();
    receiver.wait(1);
    relay.stop();
    EXPECT_THAT(receiver.names(), testing::ElementsAre("fifteen letters"));
}

TEST(SignalRelay, WorksFromAHandlerThatTakesEverySignalOfAFlood) {
    Receiver receiver;
    SignalRelay relay;
    relay.start(receiver.function());
    handlersRelay = &relay;
    struct sigaction taken {};
    struct sigaction before {};
    taken.sa_handler = handler;
    ASSERT_EQ(sigaction(SIGINT, &taken, &before), 0);
    constexpr std::size_t FLOOD = 1000;
    for (std::size_t i = 0; i < FLOOD; ++i) {
        ASSERT_EQ(raise(SIGINT), 0); // comes back once the handler has run
    }
    EXPECT_EQ(receiver.wait(FLOOD).size(), FLOOD);
    relay.stop();
    sigaction(SIGINT, &before, nullptr);
    EXPECT_EQ(receiver.wait(FLOOD).size(), FLOOD);
}

TEST(SignalRelay, LeavesErrnoAlone) {
    SignalRelay relay;
    errno = E2BIG;
    relay.raise(SIGINT);
    EXPECT_EQ(errno, E2BIG);
}

TEST(SignalRelay, HandsNothingOnOnceItIsStopped) {
    Receiver receiver;
    SignalRelay relay;
    const auto before = threads();
    for (int i = 0; i < 3; ++i) {
        relay.start(receiver.function());
        relay.stop();
    }
    // ThreadSanitizer has a thread of its own beside the first one.
    EXPECT_TRUE(eventually([&] { return threads() <= before + 1; })) << "nobody is left to hand on";
    relay.raise(SIGINT);
    EXPECT_THAT(receiver.wait(0), testing::IsEmpty());
}

TEST(SignalRelay, DropsTheRestOfAStormWhenItIsStopped) {
    constexpr int STORM = 1000;
    std::atomic<int> calls{0};
    SignalRelay relay;
    for (int i = 0; i < STORM; ++i) {
        relay.raise(SIGINT);
    }
    // Each call is a slow one: that all of them are made before the stop is out of the question.
    relay.start([&](int) {
        ++calls;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    });
    EXPECT_TRUE(eventually([&] { return calls != 0; }));
    relay.stop();
    EXPECT_LT(calls, STORM / 2);
}

TEST(SignalRelay, MayBeStoppedWithoutAStartAndTwice) {
    SignalRelay relay;
    relay.stop();
    relay.stop();
}

} // namespace
