#include "dispatcher.h"

#include "support/loop_clock.h"
#include "support/waiting.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class ADispatcher : public testing::Test {
protected:
    /// A message that writes a letter down.
    brem::IDispatcher::Message writes(char letter) {
        return [this, letter] { order += letter; };
    }

    std::string order;
    brem::Dispatcher dispatcher;
};

/// Posts again when the last copy of the message that holds it is gone.
struct PostsAtItsEnd {
    PostsAtItsEnd(brem::IDispatcher& loop, brem::IDispatcher::Message next)
        : m_loop(loop), m_next(std::move(next)) {}
    ~PostsAtItsEnd() { m_loop.post(m_next); }
    PostsAtItsEnd(const PostsAtItsEnd&) = delete;
    PostsAtItsEnd& operator=(const PostsAtItsEnd&) = delete;

private:
    brem::IDispatcher& m_loop;
    brem::IDispatcher::Message m_next;
};

TEST_F(ADispatcher, RunsMessagesInPostingOrder) {
    dispatcher.post(writes('a'));
    dispatcher.post(writes('b'));
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(order, "ab");
}

TEST_F(ADispatcher, RunsWhatWasPostedBeforeAShutdownAndNothingElse) {
    dispatcher.post(writes('a'));
    dispatcher.shutdown();
    dispatcher.post(writes('b'));
    dispatcher.post(writes('c'));
    dispatcher.run();
    EXPECT_EQ(order, "a");
    EXPECT_EQ(dispatcher.size(), 2U);
}

TEST_F(ADispatcher, RunsNoMoreMessagesOnceStopped) {
    dispatcher.post([this] { dispatcher.stop(); });
    dispatcher.post(writes('a'));
    dispatcher.run();
    EXPECT_EQ(order, "");
    EXPECT_EQ(dispatcher.size(), 1U);
}

TEST_F(ADispatcher, LosesAStopThatComesBeforeItRuns) {
    dispatcher.stop();
    dispatcher.post(writes('a'));
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(order, "a");
}

TEST_F(ADispatcher, RunsAgainAfterAStop) {
    dispatcher.shutdown();
    dispatcher.post(writes('a'));
    dispatcher.run();
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(order, "a");
}

TEST_F(ADispatcher, DropsAnEmptyMessage) {
    dispatcher.post({});
    dispatcher.postDelayed(0s, nullptr);
    dispatcher.post(writes('a'));
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(order, "a");
    EXPECT_EQ(dispatcher.size(), 0U);
}

TEST_F(ADispatcher, CountsMessagesThatAreNotYetDueAndTheOneThatRuns) {
    EXPECT_EQ(dispatcher.size(), 0U);
    std::size_t whileRunning = 0;
    dispatcher.post([&] { whileRunning = dispatcher.size(); });
    dispatcher.postDelayed(1min, writes('a'));
    EXPECT_EQ(dispatcher.size(), 2U);
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(whileRunning, 3U);
    EXPECT_EQ(dispatcher.size(), 1U);
}

TEST_F(ADispatcher, LetsAMessagePostAndShutDown) {
    dispatcher.post([this] {
        dispatcher.postDelayed(0ms, writes('a'));
        dispatcher.post(writes('b'));
        dispatcher.shutdown();
    });
    dispatcher.run();
    EXPECT_EQ(order, "ab");
}

TEST_F(ADispatcher, DropsEveryWaitingMessageOnClear) {
    const auto held = std::make_shared<int>(0);
    dispatcher.post([this, held] { order += 'a'; });
    dispatcher.postDelayed(60min, [held] {});
    EXPECT_EQ(held.use_count(), 3);
    dispatcher.clear();
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(dispatcher.size(), 0U);
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(order, "");
}

TEST_F(ADispatcher, IsEmptyAfterAClearByTheMessageThatRuns) {
    std::vector<std::size_t> sizes;
    dispatcher.post([&] {
        dispatcher.clear();
        sizes.push_back(dispatcher.size());
        dispatcher.clear();
        sizes.push_back(dispatcher.size());
        dispatcher.post([&] { sizes.push_back(dispatcher.size()); });
        dispatcher.shutdown();
    });
    dispatcher.post(writes('a'));
    dispatcher.run();
    EXPECT_THAT(sizes, ElementsAre(0U, 0U, 2U));
    EXPECT_EQ(order, "");
    EXPECT_EQ(dispatcher.size(), 0U);
}

TEST_F(ADispatcher, NoLongerCountsAMessageWhenItsCopiesAreDestroyed) {
    struct CountsAtItsEnd {
        brem::IDispatcher& loop;
        std::vector<std::size_t>& counts;
        bool& ran;
        void operator()() const { ran = true; }
        ~CountsAtItsEnd() {
            if (ran) {
                counts.push_back(loop.size());
            }
        }
    };
    std::vector<std::size_t> counts;
    bool ran = false;
    dispatcher.post(CountsAtItsEnd{dispatcher, counts, ran});
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_THAT(counts, ElementsAre(1U, 1U)) << "the queued one and the one that ran";
}

TEST_F(ADispatcher, ClearsFromAnotherThreadWhileAMessageRuns) {
    dispatcher.post([&] { std::thread([&] { dispatcher.clear(); }).join(); });
    dispatcher.post(writes('a'));
    dispatcher.postDelayed(0s, writes('b'));
    std::thread loop([&] { dispatcher.run(); });
    EXPECT_TRUE(eventually([this] { return dispatcher.size() == 0; }));
    dispatcher.shutdown();
    loop.join();
    EXPECT_EQ(order, "");
}

TEST_F(ADispatcher, KeepsAMessageThatThrewInItsQueue) {
    const auto held = std::make_shared<int>(0);
    int calls = 0;
    dispatcher.post([&calls, held] {
        if (++calls == 1) {
            throw std::runtime_error("thrown by a message");
        }
    });
    dispatcher.post(writes('a'));
    EXPECT_THROW(dispatcher.run(), std::runtime_error);
    EXPECT_EQ(held.use_count(), 2) << "the copy that ran is gone, the entry is not";
    EXPECT_EQ(dispatcher.size(), 2U);
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(order, "a");
    EXPECT_EQ(dispatcher.size(), 0U);
}

TEST_F(ADispatcher, ClearsAMessageThatThrew) {
    dispatcher.post([] { throw 1; });
    EXPECT_THROW(dispatcher.run(), int);
    dispatcher.clear();
    EXPECT_EQ(dispatcher.size(), 0U);
}

TEST_F(ADispatcher, DestroysAMessageOnceItHasRun) {
    auto held = std::make_shared<int>(0);
    long whileRunning = 0;
    dispatcher.post([&whileRunning, held] { whileRunning = held.use_count(); });
    dispatcher.post([&] { EXPECT_EQ(held.use_count(), 1); });
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(whileRunning, 3) << "the test's, the queued and the copy that ran";
}

TEST_F(ADispatcher, DropsItsMessagesWithoutCallingThemWhenItEnds) {
    const auto held = std::make_shared<int>(0);
    {
        brem::Dispatcher ending;
        ending.post([this, held] { order += 'a'; });
        ending.postDelayed(1s, [held] {});
    }
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(order, "");
}

TEST_F(ADispatcher, LetsAMessagePostWhenItIsDestroyedAfterItRan) {
    auto atEnd = std::make_shared<PostsAtItsEnd>(dispatcher, [this] {
        order += 'b';
        dispatcher.shutdown();
    });
    dispatcher.post([this, atEnd] { order += 'a'; });
    atEnd.reset();
    dispatcher.run();
    EXPECT_EQ(order, "ab");
}

TEST_F(ADispatcher, DestroysEveryCopyOfAMessageWithItsLockFree) {
    struct AsksAtItsEnd {
        brem::IDispatcher& loop;
        explicit AsksAtItsEnd(brem::IDispatcher& asked) : loop(asked) {}
        AsksAtItsEnd(const AsksAtItsEnd&) = default;
        AsksAtItsEnd& operator=(const AsksAtItsEnd&) = delete;
        ~AsksAtItsEnd() { loop.size(); }
        void operator()() const {}
    };
    dispatcher.post(AsksAtItsEnd(dispatcher));
    dispatcher.shutdown();
    dispatcher.run();
    dispatcher.post(AsksAtItsEnd(dispatcher));
    dispatcher.clear();
    EXPECT_EQ(dispatcher.size(), 0U);
}

TEST_F(ADispatcher, LetsAMessagePostWhenItIsDroppedByAClear) {
    auto atEnd = std::make_shared<PostsAtItsEnd>(dispatcher, writes('b'));
    dispatcher.post([this, atEnd] { order += 'a'; });
    atEnd.reset();
    dispatcher.clear();
    EXPECT_EQ(dispatcher.size(), 1U);
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(order, "b");
}

TEST_F(ADispatcher, RunsEveryMessageOfManyThreadsOnItsOwnThreadInEachThreadsOrder) {
    constexpr int THREADS = 4;
    constexpr int MESSAGES = 1000;
    std::vector<int> next(THREADS, 0);
    int misplaced = 0;
    std::thread loop([&] { dispatcher.run(); });
    const auto loopThread = loop.get_id();
    std::vector<std::thread> posters;
    for (std::size_t poster = 0; poster < THREADS; ++poster) {
        posters.emplace_back([&, poster] {
            for (int number = 0; number < MESSAGES; ++number) {
                dispatcher.post([&, poster, number] {
                    misplaced += next[poster]++ != number;
                    misplaced += std::this_thread::get_id() != loopThread;
                });
            }
        });
    }
    for (std::thread& poster : posters) {
        poster.join();
    }
    dispatcher.shutdown();
    loop.join();
    EXPECT_THAT(next, testing::Each(MESSAGES));
    EXPECT_EQ(misplaced, 0);
}

TEST_F(ADispatcher, RunsADelayedMessageNoEarlierThanItsDelay) {
    const auto begin = std::chrono::steady_clock::now();
    dispatcher.postDelayed(30ms, [this] { dispatcher.stop(); });
    dispatcher.run();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 30ms);
}

TEST_F(ADispatcher, EndsSoonAfterAStopFromAnotherThread) {
    std::promise<void> running;
    dispatcher.post([&] { running.set_value(); });
    auto loop = std::async(std::launch::async, [&] { dispatcher.run(); });
    running.get_future().wait();
    dispatcher.stop();
    EXPECT_EQ(loop.wait_for(10s), std::future_status::ready);
}

TEST_F(ADispatcher, SignalsOnceAfterItsLockAndYieldsOnEveryPost) {
    LoopCalls calls;
    dispatcher.post({});
    EXPECT_THAT(calls.take(), ElementsAre("lock", "unlock", "signal", "yield"));
    dispatcher.postDelayed(1ms, {});
    EXPECT_THAT(calls.take(), ElementsAre("lock", "unlock", "signal", "yield"));
    dispatcher.postDelayed(1s, {});
    EXPECT_THAT(calls.take(), ElementsAre("lock", "unlock", "signal", "yield"));
    dispatcher.postDelayed(1min, {});
    EXPECT_THAT(calls.take(), ElementsAre("lock", "unlock", "signal", "yield"));
    dispatcher.shutdown();
    EXPECT_THAT(calls.take(), ElementsAre("lock", "unlock", "signal", "yield"));
}

TEST_F(ADispatcher, StopsWithoutItsLock) {
    LoopCalls calls;
    dispatcher.stop();
    EXPECT_THAT(calls.take(), ElementsAre("signal", "yield"));
}

TEST_F(ADispatcher, RaisesWhatALockThatFailsReports) {
    const auto codeOf = [](auto&& operation) {
        failNextLock(EDEADLK);
        try {
            operation();
        } catch (const std::system_error& error) {
            return error.code().value();
        }
        return 0;
    };
    EXPECT_EQ(codeOf([&] { dispatcher.post({}); }), EDEADLK);
    EXPECT_EQ(codeOf([&] { dispatcher.clear(); }), EDEADLK);
    EXPECT_EQ(codeOf([&] { dispatcher.size(); }), EDEADLK);
    EXPECT_EQ(codeOf([&] { dispatcher.run(); }), EDEADLK);
    EXPECT_EQ(dispatcher.size(), 0U);
}

} // namespace
