#include "dispatcher.h"

#include "support/loop_clock.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using testing::ElementsAre;
using testing::IsEmpty;

class AWaitingDispatcher : public testing::Test {
protected:
    /// A message that writes a letter down, and when it ran.
    brem::IDispatcher::Message writes(char letter) {
        return [this, letter] {
            order += letter;
            times.push_back(clock.sinceStart());
        };
    }

    LoopClock clock;
    std::string order;
    std::vector<nanoseconds> times;
    brem::Dispatcher dispatcher;
};

TEST_F(AWaitingDispatcher, RunsAnImmediateMessageBeforeADelayedOneThatIsNotDue) {
    dispatcher.postDelayed(2s, writes('d'));
    dispatcher.post(writes('i'));
    dispatcher.postDelayed(3s, [this] { dispatcher.stop(); });
    dispatcher.run();
    EXPECT_EQ(order, "id");
    EXPECT_THAT(times, ElementsAre(0s, 2s));
}

TEST_F(AWaitingDispatcher, RunsADelayedMessageThatIsDueBeforeAnImmediateOnePostedAfterIt) {
    dispatcher.postDelayed(2s, writes('d'));
    dispatcher.post(writes('i'));
    dispatcher.shutdown();
    clock.advance(3s);
    dispatcher.run();
    EXPECT_EQ(order, "di");
}

TEST_F(AWaitingDispatcher, RunsWhatIsDueInPostingOrderWhicheverFellDueFirst) {
    dispatcher.postDelayed(200ms, writes('a'));
    dispatcher.postDelayed(100ms, writes('b'));
    dispatcher.shutdown();
    clock.advance(200ms);
    dispatcher.run();
    EXPECT_EQ(order, "ab");
}

TEST_F(AWaitingDispatcher, RunsMessagesAsTheyFallDue) {
    dispatcher.postDelayed(200ms, writes('a'));
    dispatcher.postDelayed(100ms, writes('b'));
    dispatcher.postDelayed(200ms, writes('c'));
    dispatcher.postDelayed(201ms, [this] { dispatcher.stop(); });
    dispatcher.run();
    EXPECT_EQ(order, "bac");
    EXPECT_THAT(times, ElementsAre(100ms, 200ms, 200ms));
    EXPECT_THAT(clock.waits(), ElementsAre(100ms, 100ms, 1ms));
}

TEST_F(AWaitingDispatcher, ScansFromTheFrontAfterEachMessage) {
    dispatcher.postDelayed(10ms, writes('a'));
    dispatcher.post([this] { clock.advance(10ms); });
    dispatcher.post(writes('b'));
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(order, "ab");
}

TEST_F(AWaitingDispatcher, TakesADelayOfZeroOrLessAsNone) {
    dispatcher.postDelayed(0ms, writes('a'));
    dispatcher.postDelayed(-5ms, writes('b'));
    dispatcher.postDelayed(0s, writes('c'));
    dispatcher.postDelayed(-5s, writes('d'));
    dispatcher.postDelayed(0min, writes('e'));
    dispatcher.postDelayed(-5min, writes('f'));
    dispatcher.post(writes('g'));
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(order, "abcdefg");
    EXPECT_THAT(clock.waits(), IsEmpty());
}

TEST_F(AWaitingDispatcher, CountsADelayInItsUnit) {
    dispatcher.postDelayed(std::chrono::milliseconds(2), writes('a'));
    dispatcher.postDelayed(std::chrono::seconds(2), writes('b'));
    dispatcher.postDelayed(std::chrono::minutes(2), writes('c'));
    dispatcher.postDelayed(std::chrono::minutes(3), [this] { dispatcher.stop(); });
    dispatcher.run();
    EXPECT_THAT(times, ElementsAre(2ms, 2s, 120s));
}

TEST_F(AWaitingDispatcher, TakesDelaysOfYears) {
    dispatcher.postDelayed(std::chrono::seconds(2'147'483'647), writes('a'));
    dispatcher.shutdown();
    dispatcher.run();
    EXPECT_EQ(order, "");
}

TEST_F(AWaitingDispatcher, WakesOnceASecondWhereThereIsNothingToDo) {
    int wakes = 0;
    clock.onWait([&] {
        if (++wakes == 5) {
            dispatcher.stop();
        }
        return true;
    });
    dispatcher.run();
    EXPECT_THAT(clock.waits(), ElementsAre(1s, 1s, 1s, 1s, 1s));
}

TEST_F(AWaitingDispatcher, WaitsAtMostASecond) {
    dispatcher.postDelayed(1000ms, writes('a'));
    dispatcher.postDelayed(2500ms, [this] { dispatcher.stop(); });
    dispatcher.run();
    EXPECT_THAT(clock.waits(), ElementsAre(1s, 1s, 500ms));
}

TEST_F(AWaitingDispatcher, WaitsForWholeMillisecondsAndPollsForTheRest) {
    dispatcher.postDelayed(3ms, writes('a'));
    dispatcher.postDelayed(0ms, [this] { clock.advance(500us); });
    dispatcher.postDelayed(3ms, [this] { dispatcher.stop(); });
    clock.setTick(1us);
    dispatcher.run();
    EXPECT_THAT(clock.waits(), ElementsAre(2ms)) << "2.5 ms are cut to 2 ms; less than 1 is polled";
    ASSERT_THAT(times, testing::SizeIs(1));
    EXPECT_GE(times[0], 3ms);
    EXPECT_LE(times[0], 3ms + 100us);
}

TEST_F(AWaitingDispatcher, SleepsNotAtAllForLessThanAMillisecond) {
    dispatcher.postDelayed(1ms, [this] { dispatcher.stop(); });
    clock.advance(1ns);
    clock.setTick(1us);
    dispatcher.run();
    EXPECT_THAT(clock.waits(), IsEmpty());
}

TEST_F(AWaitingDispatcher, RunsWhatIsPostedWhileItWaitsWithoutWaitingAgain) {
    clock.onWait([this] {
        dispatcher.post(writes('a'));
        dispatcher.shutdown();
        return false;
    });
    dispatcher.run();
    EXPECT_EQ(order, "a");
    EXPECT_THAT(times, ElementsAre(0s));
    EXPECT_THAT(clock.waits(), ElementsAre(1s));
}

TEST_F(AWaitingDispatcher, ShortensItsWaitForAnEarlierMessage) {
    int waits = 0;
    dispatcher.postDelayed(900ms, [this] { dispatcher.stop(); });
    clock.onWait([&] {
        if (++waits == 1) {
            clock.advance(100ms);
            dispatcher.postDelayed(50ms, writes('a'));
            return false;
        }
        return true;
    });
    dispatcher.run();
    EXPECT_THAT(clock.waits(), ElementsAre(900ms, 50ms, 750ms));
    EXPECT_THAT(times, ElementsAre(150ms));
}

TEST_F(AWaitingDispatcher, GoesOnWaitingWhereItIsWokenForNothing) {
    int waits = 0;
    dispatcher.postDelayed(100ms, [this] { dispatcher.stop(); });
    clock.onWait([&] { return ++waits > 3; });
    dispatcher.run();
    EXPECT_THAT(clock.waits(), ElementsAre(100ms, 100ms, 100ms, 100ms));
    EXPECT_EQ(clock.sinceStart(), 100ms);
}

TEST_F(AWaitingDispatcher, EndsAtItsNextWakeUpOnceStopped) {
    dispatcher.postDelayed(400ms, writes('a'));
    clock.onWait([this] {
        dispatcher.stop();
        return true; // the message is due by then, and does not run
    });
    dispatcher.run();
    EXPECT_EQ(order, "");
    EXPECT_THAT(clock.waits(), ElementsAre(400ms));
}

TEST_F(AWaitingDispatcher, RunsNothingEarlyWhereTheWallClockIsSetForward) {
    int waits = 0;
    dispatcher.postDelayed(400ms, writes('a'));
    dispatcher.postDelayed(401ms, [this] { dispatcher.stop(); });
    clock.onWait([&] {
        if (++waits == 1) {
            clock.advance(100ms);
            clock.setWallClock(1h); // past the deadline: the wait ends at once
            return false;
        }
        return true;
    });
    dispatcher.run();
    EXPECT_THAT(times, ElementsAre(400ms));
    EXPECT_THAT(clock.waits(), ElementsAre(400ms, 300ms, 1ms));
}

TEST_F(AWaitingDispatcher, ShiftsOneWaitWhereTheWallClockIsSetBack) {
    int waits = 0;
    dispatcher.postDelayed(400ms, writes('a'));
    dispatcher.postDelayed(3602s, [this] { dispatcher.stop(); });
    clock.onWait([&] {
        if (++waits == 1) {
            clock.setWallClock(-1h);
            clock.advance(1h); // the deadline is an hour later on the steady clock
        }
        return true;
    });
    dispatcher.run();
    EXPECT_THAT(times, ElementsAre(1h + 400ms));
    EXPECT_THAT(clock.waits(), ElementsAre(400ms, 1s, 600ms));
}

} // namespace
