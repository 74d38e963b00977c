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
    brem::Lifeline<Swimmer> lifeline{this};
};

const auto count = [](Swimmer& swimmer) { ++swimmer.calls; };

TEST(ALifeline, ReachesItsObject) {
    Swimmer swimmer;
    EXPECT_TRUE(swimmer.lifeline.end().call(count));
    EXPECT_EQ(swimmer.calls, 1);
}

TEST(ALifeline, IsNoReachWithoutAnObject) {
    const brem::Lifeline<Swimmer>::End end;
    EXPECT_FALSE(end.call(count));
}

TEST(ALifeline, EndsAllReachWhenCut) {
    Swimmer swimmer;
    const auto end = swimmer.lifeline.end();
    const auto copy = end;
    swimmer.lifeline.cut();
    EXPECT_FALSE(end.call(count));
    EXPECT_FALSE(copy.call(count));
    EXPECT_FALSE(swimmer.lifeline.end().call(count));
    EXPECT_EQ(swimmer.calls, 0);
}

TEST(ALifeline, IsCutByTheEndOfItsObject) {
    auto swimmer = std::make_unique<Swimmer>();
    const auto end = swimmer->lifeline.end();
    swimmer.reset();
    EXPECT_FALSE(end.call([](Swimmer&) { FAIL() << "reached an object that is gone"; }));
}

TEST(ALifeline, IsCutOnlyWhenACallUnderWayHasEnded) {
    Swimmer swimmer;
    const auto end = swimmer.lifeline.end();
    std::promise<void> begun;
    std::promise<void> mayEnd;
    std::atomic<bool> ended{false};
    std::thread caller([&] {
        end.call([&](Swimmer&) {
            begun.set_value();
            mayEnd.get_future().wait();
            ended = true;
        });
    });
    begun.get_future().wait();
    auto cut = std::async(std::launch::async, [&] {
        swimmer.lifeline.cut();
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
    const auto end = dispatcher.lifeline();
    EXPECT_TRUE(end.call([&](brem::IDispatcher& reached) { reached.post([&] { ran = true; }); }));
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_TRUE(ran);
}

TEST(ADispatchersLifeline, PostsNothingOnceTheDispatcherIsDeleted) {
    std::unique_ptr<brem::IDispatcher> dispatcher(new brem::Dispatcher);
    const auto end = dispatcher->lifeline();
    dispatcher.reset();
    EXPECT_FALSE(end.call([](brem::IDispatcher& gone) { gone.post([] {}); }));
}

TEST(ADispatchersLifeline, IsCutBeforeTheQueueIsDropped) {
    std::unique_ptr<brem::IDispatcher> dispatcher(new brem::Dispatcher);
    const auto end = dispatcher->lifeline();
    bool reached = true;
    auto atEnd = std::shared_ptr<int>(new int, [&](int* number) {
        delete number;
        reached = end.call([](brem::IDispatcher& gone) { gone.post([] {}); });
    });
    dispatcher->post([atEnd] {});
    atEnd.reset();
    dispatcher.reset();
    EXPECT_FALSE(reached);
}

} // namespace
