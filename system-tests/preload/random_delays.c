/* Preload library: random delays before locks, polls and closes, so that threads meet in orders
 * that are rare otherwise.
 *
 * RANDOM_DELAYS is the seed: a thread's delays follow from it and from the thread's number in the
 * order of first use. Every fourth call is delayed, by 2 ms at most. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

enum { ONE_IN = 4, LONGEST_NS = 2000000 };

static uint64_t seed;
static uint64_t threads;
static __thread uint64_t state;

static int (*real_close)(int);
static int (*real_poll)(struct pollfd*, nfds_t, int);
static int (*real_lock)(pthread_mutex_t*);

__attribute__((constructor)) static void read_seed(void) {
    const char* text = getenv("RANDOM_DELAYS");
    if (text != NULL)
        __atomic_store_n(&seed, strtoull(text, NULL, 10) + 1, __ATOMIC_RELEASE);
}

/* splitmix64: neighbouring seeds give numbers that have nothing in common. */
static uint64_t next_random(void) {
    if (state == 0)
        state = __atomic_load_n(&seed, __ATOMIC_ACQUIRE) << 32 |
                __atomic_add_fetch(&threads, 1, __ATOMIC_RELAXED);
    state += 0x9E3779B97F4A7C15;
    uint64_t mixed = (state ^ (state >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return mixed ^ (mixed >> 31);
}

/* By the kernel's own call: a sanitizer watches the C library's. Nothing is allocated or locked, so
 * that a forked child may be delayed as well. */
static void delay(void) {
    if (__atomic_load_n(&seed, __ATOMIC_ACQUIRE) == 0 || next_random() % ONE_IN != 0)
        return;
    const struct timespec pause = {0, (long)(next_random() % LONGEST_NS)};
    syscall(SYS_nanosleep, &pause, NULL);
}

int close(int fd) {
    if (real_close == NULL)
        real_close = (int (*)(int))dlsym(RTLD_NEXT, "close");
    delay();
    return real_close(fd);
}

int poll(struct pollfd* fds, nfds_t count, int timeout) {
    if (real_poll == NULL)
        real_poll = (int (*)(struct pollfd*, nfds_t, int))dlsym(RTLD_NEXT, "poll");
    delay();
    return real_poll(fds, count, timeout);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (real_lock == NULL)
        real_lock = (int (*)(pthread_mutex_t*))dlsym(RTLD_NEXT, "pthread_mutex_lock");
    delay();
    return real_lock(mutex);
}
