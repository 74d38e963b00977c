/* Preload library: clocks that a test sets while the program runs. libfaketime has one shift for
 * the wall clock and the steady one, changes no wait that has begun, and knows no threads.
 *
 * SHIFTED_CLOCK names a file that is mapped and shared with the test; `struct shifts` is what it
 * holds. A wait with a deadline on the wall clock ends when that clock says so, as it would where
 * the system's own clock was set.
 *
 * STEPPING_CLOCK holds numbers of microseconds, separated by commas: to each thread but the main
 * one the wall clock stands still but for these steps, one a reading and from the start again, so
 * that a frame takes exactly as long as a test wants. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

enum { SLICE_NS = 2000000, SECOND_NS = 1000000000 };

struct shifts {
    int64_t wall_ns; /* by how much each clock is ahead of the true one */
    int64_t steady_ns;
    int64_t is_next_set;  /* 1: the wall clock is set as soon as a wait has begun, */
    int64_t next_wall_ns; /* to this */
    int64_t waits;        /* how many have begun */
    int64_t left_ns;      /* how much longer the one under way is to last */
};

static struct shifts none;
static struct shifts* shifts = &none;

static int64_t steps_ns[8];
static unsigned step_count;

static void read_steps(const char* text) {
    while (text != NULL && step_count < sizeof steps_ns / sizeof *steps_ns) {
        steps_ns[step_count++] = atoll(text) * 1000;
        text = strchr(text, ',');
        text = text == NULL ? NULL : text + 1;
    }
}

__attribute__((constructor)) static void set_up(void) {
    read_steps(getenv("STEPPING_CLOCK"));
    const char* path = getenv("SHIFTED_CLOCK");
    const int file = path == NULL ? -1 : open(path, O_RDWR | O_CLOEXEC);
    if (file < 0)
        return;
    void* shared = mmap(NULL, sizeof(struct shifts), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (shared != MAP_FAILED)
        shifts = shared;
}

static int64_t true_ns(clockid_t clock) {
    struct timespec time = {0, 0};
    syscall(SYS_clock_gettime, clock, &time);
    return (int64_t)time.tv_sec * SECOND_NS + time.tv_nsec;
}

static int64_t stepped_ns(void) {
    static __thread int64_t now_ns;
    static __thread unsigned reading;
    if (reading == 0)
        now_ns = true_ns(CLOCK_REALTIME) / SECOND_NS * SECOND_NS;
    return now_ns += steps_ns[reading++ % step_count];
}

static int64_t wall_ns(void) {
    return true_ns(CLOCK_REALTIME) + __atomic_load_n(&shifts->wall_ns, __ATOMIC_ACQUIRE);
}

/* The part of a second is never negative, before 1970 either. */
static int64_t seconds_of(int64_t ns) {
    return ns / SECOND_NS - (ns % SECOND_NS < 0);
}

static struct timespec as_time(int64_t ns) {
    const int64_t seconds = seconds_of(ns);
    struct timespec time = {(time_t)seconds, (long)(ns - seconds * SECOND_NS)};
    return time;
}

static int fits(int64_t ns) {
    return sizeof(time_t) == 8 || (ns / SECOND_NS <= INT32_MAX && ns / SECOND_NS >= INT32_MIN);
}

static int64_t clock_ns(clockid_t clock) {
    if (clock == CLOCK_REALTIME)
        return step_count > 0 && gettid() != getpid() ? stepped_ns() : wall_ns();
    const int64_t shift =
        clock == CLOCK_MONOTONIC ? __atomic_load_n(&shifts->steady_ns, __ATOMIC_ACQUIRE) : 0;
    return true_ns(clock) + shift;
}

int clock_gettime(clockid_t clock, struct timespec* time) {
    const int64_t ns = clock_ns(clock);
    if (!fits(ns)) {
        errno = EOVERFLOW; /* as the C library does */
        return -1;
    }
    *time = as_time(ns);
    return 0;
}

int gettimeofday(struct timeval* restrict time, void* restrict zone) {
    (void)zone;
    const struct timespec now = as_time(wall_ns());
    time->tv_sec = now.tv_sec;
    time->tv_usec = (suseconds_t)(now.tv_nsec / 1000);
    return 0;
}

/* What was signalled last while somebody waited for it, and how often. */
static pthread_cond_t* waited_for;
static unsigned signals;

int pthread_cond_signal(pthread_cond_t* condition) {
    static int (*real)(pthread_cond_t*);
    if (real == NULL)
        real = (int (*)(pthread_cond_t*))dlsym(RTLD_NEXT, "pthread_cond_signal");
    if (condition == __atomic_load_n(&waited_for, __ATOMIC_ACQUIRE))
        __atomic_add_fetch(&signals, 1, __ATOMIC_ACQ_REL);
    return real(condition);
}

static void begin_wait(void) {
    if (__atomic_load_n(&shifts->is_next_set, __ATOMIC_ACQUIRE) != 0) {
        __atomic_store_n(&shifts->wall_ns, shifts->next_wall_ns, __ATOMIC_RELEASE);
        __atomic_store_n(&shifts->is_next_set, 0, __ATOMIC_RELEASE);
    }
    __atomic_add_fetch(&shifts->waits, 1, __ATOMIC_ACQ_REL);
}

/* In slices, so that a clock that is set meanwhile counts. A signal may fall between two of them:
 * who stops the loop does so without the mutex. */
static int wait_until(pthread_cond_t* condition, pthread_mutex_t* mutex, int64_t end) {
    typedef int function(pthread_cond_t*, pthread_mutex_t*, const struct timespec*);
    static function* real;
    if (real == NULL)
        real = (function*)dlsym(RTLD_NEXT, "pthread_cond_timedwait");
    __atomic_store_n(&waited_for, condition, __ATOMIC_RELEASE);
    const unsigned before = __atomic_load_n(&signals, __ATOMIC_ACQUIRE);
    begin_wait();
    for (;;) {
        const int64_t left = end - wall_ns();
        __atomic_store_n(&shifts->left_ns, left, __ATOMIC_RELEASE);
        if (left <= 0)
            return ETIMEDOUT;
        const int64_t slice = left < SLICE_NS ? left : SLICE_NS;
        const struct timespec until = as_time(true_ns(CLOCK_REALTIME) + slice);
        const int result = real(condition, mutex, &until);
        if (result != ETIMEDOUT)
            return result;
        if (__atomic_load_n(&signals, __ATOMIC_ACQUIRE) != before)
            return 0;
    }
}

/* Before 1970 a deadline has passed, or is none. */
static int deadline_error(int64_t seconds, int64_t nanoseconds) {
    if (nanoseconds < 0 || nanoseconds >= SECOND_NS)
        return EINVAL;
    return seconds < 0 ? ETIMEDOUT : 0;
}

int pthread_cond_timedwait(pthread_cond_t* restrict condition, pthread_mutex_t* restrict mutex,
                           const struct timespec* restrict deadline) {
    const int error = deadline_error(deadline->tv_sec, deadline->tv_nsec);
    return error != 0 ? error
                      : wait_until(condition, mutex,
                                   (int64_t)deadline->tv_sec * SECOND_NS + deadline->tv_nsec);
}

#if __SIZEOF_POINTER__ == 4
/* The names of the same calls in a 32-bit program whose times have 64 bits. */
struct time64 {
    int64_t seconds;
    int32_t nanoseconds;
    int32_t padding;
};

int __clock_gettime64(clockid_t clock, struct time64* time) {
    const int64_t ns = clock_ns(clock);
    time->seconds = seconds_of(ns);
    time->nanoseconds = (int32_t)(ns - time->seconds * SECOND_NS);
    return 0;
}

int __gettimeofday64(int64_t time[2], void* restrict zone) {
    (void)zone;
    const int64_t ns = wall_ns();
    time[0] = seconds_of(ns);
    time[1] = (ns - time[0] * SECOND_NS) / 1000;
    return 0;
}

int __pthread_cond_timedwait64(pthread_cond_t* restrict condition, pthread_mutex_t* restrict mutex,
                               const struct time64* restrict deadline) {
    const int error = deadline_error(deadline->seconds, deadline->nanoseconds);
    return error != 0 ? error
                      : wait_until(condition, mutex,
                                   deadline->seconds * SECOND_NS + deadline->nanoseconds);
}
#endif
