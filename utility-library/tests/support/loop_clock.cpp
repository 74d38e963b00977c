// The C++ library of a 32-bit device has 32-bit times; the program's 64-bit calls are at the end.
#undef _TIME_BITS

#include "support/loop_clock.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

using std::chrono::nanoseconds;

constexpr std::int64_t START = 1'000'000'000'000;
constexpr std::int64_t WALL_AHEAD = 1'700'000'000'000'000'000;
constexpr std::size_t TOO_MANY_WAITS = 100'000;

struct Clock {
    std::atomic<bool> inHand{false};
    std::atomic<std::int64_t> steady{0};
    std::atomic<std::int64_t> wallAhead{0};
    std::atomic<std::int64_t> tick{0};
    std::vector<nanoseconds> waits;
    std::function<bool()> hook;
} s_clock;

thread_local bool s_recording = false;
thread_local int s_lockError = 0;
std::vector<std::string> s_calls; // of the one thread that records

void record(const char* call) {
    if (s_recording) {
        s_recording = false; // the list may allocate, and that lock
        s_calls.emplace_back(call);
        s_recording = true;
    }
}

template <class Function>
Function* next(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

constexpr std::int64_t NANOSECONDS = 1'000'000'000; ///< of a second

bool isInHand(clockid_t id) {
    return s_clock.inHand && (id == CLOCK_MONOTONIC || id == CLOCK_REALTIME);
}

std::int64_t timeInHand(clockid_t id) {
    const std::int64_t time = s_clock.steady;
    if (id == CLOCK_REALTIME) {
        return time + s_clock.wallAhead;
    }
    s_clock.steady += s_clock.tick;
    return time;
}

int waitInHand(pthread_mutex_t* mutex, std::int64_t deadline) {
    const nanoseconds wait(deadline - (s_clock.steady + s_clock.wallAhead));
    s_clock.waits.push_back(wait);
    if (s_clock.waits.size() > TOO_MANY_WAITS) {
        std::abort(); // a loop that does not end
    }
    bool timePasses = true;
    if (s_clock.hook) {
        pthread_mutex_unlock(mutex);
        timePasses = s_clock.hook();
        pthread_mutex_lock(mutex);
    }
    if (timePasses && wait.count() > 0) {
        s_clock.steady += wait.count();
    }
    return timePasses ? ETIMEDOUT : 0;
}

} // namespace

LoopClock::LoopClock() {
    s_clock.steady = START;
    s_clock.wallAhead = WALL_AHEAD;
    s_clock.tick = 0;
    s_clock.waits.clear();
    s_clock.inHand = true;
}

LoopClock::~LoopClock() {
    s_clock.inHand = false;
    s_clock.hook = nullptr;
}

void LoopClock::advance(nanoseconds time) {
    s_clock.steady += time.count();
}

void LoopClock::setWallClock(nanoseconds difference) {
    s_clock.wallAhead += difference.count();
}

void LoopClock::setTick(nanoseconds tick) {
    s_clock.tick = tick.count();
}

nanoseconds LoopClock::sinceStart() const {
    return nanoseconds(s_clock.steady - START);
}

void LoopClock::onWait(std::function<bool()> hook) {
    s_clock.hook = std::move(hook);
}

std::vector<nanoseconds> LoopClock::waits() const {
    return s_clock.waits;
}

LoopCalls::LoopCalls() {
    s_calls.clear();
    s_recording = true;
}

LoopCalls::~LoopCalls() {
    s_recording = false;
}

std::vector<std::string> LoopCalls::take() {
    s_recording = false;
    const std::vector<std::string> calls = std::move(s_calls);
    s_calls.clear();
    s_recording = true;
    return calls;
}

void failNextLock(int error) {
    s_lockError = error;
}

// These stand in front of the system's.
extern "C" {
int clock_gettime(clockid_t id, struct timespec* now) noexcept {
    if (!isInHand(id)) {
        return static_cast<int>(syscall(SYS_clock_gettime, id, now));
    }
    const std::int64_t time = timeInHand(id);
    now->tv_sec = static_cast<time_t>(time / NANOSECONDS);
    now->tv_nsec = static_cast<long>(time % NANOSECONDS);
    return 0;
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const struct timespec* deadline) {
    static const auto real = next(&pthread_cond_timedwait, "pthread_cond_timedwait");
    return s_clock.inHand ? waitInHand(mutex, deadline->tv_sec * NANOSECONDS + deadline->tv_nsec)
                          : real(condition, mutex, deadline);
}

#if __TIMESIZE == 32
struct Time64 {
    std::int64_t seconds;
    std::int32_t nanoseconds;
    std::int32_t unused;
};

int __clock_gettime64(clockid_t id, Time64* now) noexcept {
    if (!isInHand(id)) {
        return static_cast<int>(syscall(SYS_clock_gettime64, id, now));
    }
    const std::int64_t time = timeInHand(id);
    *now = {time / NANOSECONDS, static_cast<std::int32_t>(time % NANOSECONDS), 0};
    return 0;
}

int __pthread_cond_timedwait64(pthread_cond_t* condition, pthread_mutex_t* mutex,
                               const Time64* deadline) {
    static const auto real = next(&__pthread_cond_timedwait64, "__pthread_cond_timedwait64");
    return s_clock.inHand
               ? waitInHand(mutex, deadline->seconds * NANOSECONDS + deadline->nanoseconds)
               : real(condition, mutex, deadline);
}
#endif

int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    static const auto real = next(&pthread_cond_signal, "pthread_cond_signal");
    record("signal");
    return real(condition);
}

int sched_yield() noexcept {
    record("yield");
    return static_cast<int>(syscall(SYS_sched_yield));
}

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static const auto real = next(&pthread_mutex_lock, "pthread_mutex_lock");
    if (s_lockError != 0) {
        const int error = s_lockError;
        s_lockError = 0;
        return error;
    }
    record("lock");
    return real(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    static const auto real = next(&pthread_mutex_unlock, "pthread_mutex_unlock");
    record("unlock");
    return real(mutex);
}
}
