/* Preload library: a wall clock that stands still but for the steps that STEPPING_CLOCK gives, so
 * that a frame takes exactly as long as a test wants.
 *
 * The variable holds numbers of microseconds, separated by commas. A thread's first reading of
 * CLOCK_REALTIME steps on by the first number, its second by the second and so on, and from the
 * start again. The main thread, and all other clocks, have the true time: what waits for a moment
 * to come must see it come. */
#define _GNU_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

enum { MOST_STEPS = 64 };

static long long steps_ns[MOST_STEPS];
static unsigned step_count;
static long long start_ns;

/* The kernel's own call: this is read before anything that could look up a function is ready. */
static int true_clock(clockid_t clock, struct timespec* time) {
    return (int)syscall(SYS_clock_gettime, clock, time);
}

__attribute__((constructor)) static void read_steps(void) {
    struct timespec now;
    true_clock(CLOCK_REALTIME, &now);
    start_ns = now.tv_sec * 1000000000LL;
    const char* text = getenv("STEPPING_CLOCK");
    while (text != NULL && *text != '\0' && step_count < MOST_STEPS) {
        char* end;
        steps_ns[step_count++] = strtoll(text, &end, 10) * 1000;
        if (end == text || (*end != ',' && *end != '\0')) {
            fprintf(stderr, "stepping-clock: STEPPING_CLOCK holds numbers and commas only\n");
            abort();
        }
        text = *end == ',' ? end + 1 : end;
    }
}

int clock_gettime(clockid_t clock, struct timespec* time) {
    static __thread long long passed_ns;
    static __thread unsigned reading;
    if (clock != CLOCK_REALTIME || step_count == 0 || gettid() == getpid())
        return true_clock(clock, time);
    passed_ns += steps_ns[reading++ % step_count];
    const long long now = start_ns + passed_ns;
    time->tv_sec = (time_t)(now / 1000000000);
    time->tv_nsec = (long)(now % 1000000000);
    return 0;
}
