#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

/// Time in the hands of a test: while it lives, both clocks stand still but for what the test and
/// the timed waits of a condition variable add, and a timed wait ends at once, its time gone by.
///
/// For a test with one thread.
class LoopClock {
public:
    LoopClock();
    ~LoopClock();
    LoopClock(const LoopClock&) = delete;
    LoopClock& operator=(const LoopClock&) = delete;

    void advance(std::chrono::nanoseconds time);
    /// Sets the wall clock forward or back; the steady clock goes on.
    void setWallClock(std::chrono::nanoseconds difference);
    /// Lets time go by at every look at the steady clock.
    void setTick(std::chrono::nanoseconds tick);
    std::chrono::nanoseconds sinceStart() const;

    /// Called in the place of each timed wait, its mutex unlocked: what happens meanwhile, and
    /// whether the time of the wait goes by.
    void onWait(std::function<bool()> hook);
    /// The time from the wall clock to the deadline of each wait so far.
    std::vector<std::chrono::nanoseconds> waits() const;
};

/// What the calling thread does to mutexes, condition variables and the scheduler, as words:
/// "lock", "unlock", "signal", "yield".
class LoopCalls {
public:
    LoopCalls();
    ~LoopCalls();
    LoopCalls(const LoopCalls&) = delete;
    LoopCalls& operator=(const LoopCalls&) = delete;

    std::vector<std::string> take();
};

/// The next lock of a mutex on the calling thread fails with this error.
void failNextLock(int error);
