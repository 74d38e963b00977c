#include "lifeline.h"

#include "dispatcher.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

namespace {

struct Swimmer {
    int calls = 0;
};

const auto count = [](Swimmer& swimmer) { ++swimmer.calls; };

TEST(ALifeline, ReachesItsObject) {
    Swimmer swimmer;
    brem::Lifeline<Swimmer> lifeline(&swimmer);
    lifeline.call(count);
    lifeline.call(count);
    EXPECT_EQ(swimmer.calls, 2);
}

TEST(ALifeline, EndsAllReachWhenCut) {
    Swimmer swimmer;
    brem::Lifeline<Swimmer> lifeline(&swimmer);
    lifeline.cut();
    lifeline.call(count);
    EXPECT_EQ(swimmer.calls, 0);
}

TEST(ALifeline, MayBeUsedAndCutByACall) {
    Swimmer swimmer;
    brem::Lifeline<Swimmer> lifeline(&swimmer);
    lifeline.call([&](Swimmer&) {
        lifeline.call(count);
        lifeline.cut();
        lifeline.call(count);
    });
    EXPECT_EQ(swimmer.calls, 1);
}

TEST(ALifeline, IsCutOnlyWhenACallUnderWayHasEnded) {
    Swimmer swimmer;
    brem::Lifeline<Swimmer> lifeline(&swimmer);
    std::promise<void> begun;
    std::promise<void> mayEnd;
    std::atomic<bool> ended{false};
    std::thread caller([&] {
        lifeline.call([&](Swimmer&) {
            begun.set_value();
            mayEnd.get_future().wait();
            ended = true;
        });
    });
    begun.get_future().wait();
    auto cut = std::async(std::launch::async, [&] {
        lifeline.cut();
        return ended.load();
    });
    // A cut that does not wait is over long before this.
    EXPECT_EQ(cut.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    mayEnd.set_value();
    EXPECT_TRUE(cut.get());
    caller.join();
}

TEST(ADispatchersLifeline, PostsWhileTheDispatcherLives) {
    brem::Dispatcher dispatcher;
    bool ran = false;
    dispatcher.lifeline()->call(
        [&](brem::IDispatcher& reached) { reached.post([&] { ran = true; }); });
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_TRUE(ran);
}

TEST(ADispatchersLifeline, ReachesNothingOnceTheDispatcherIsDeleted) {
    std::unique_ptr<brem::IDispatcher> dispatcher(new brem::Dispatcher);
    const auto lifeline = dispatcher->lifeline();
    dispatcher.reset();
    lifeline->call([](brem::IDispatcher&) { FAIL() << "reached a dispatcher that is gone"; });
}

TEST(ADispatchersLifeline, IsCutBeforeTheQueueIsDropped) {
    std::unique_ptr<brem::IDispatcher> dispatcher(new brem::Dispatcher);
    bool dropped = false;
    bool reached = false;
    auto atEnd =
        std::shared_ptr<int>(new int, [&, lifeline = dispatcher->lifeline()](const int* number) {
            delete number;
            dropped = true;
            lifeline->call([&](brem::IDispatcher&) { reached = true; });
        });
    dispatcher->post([atEnd] {});
    atEnd.reset();
    dispatcher.reset();
    EXPECT_TRUE(dropped);
    EXPECT_FALSE(reached);
}

} // namespace
