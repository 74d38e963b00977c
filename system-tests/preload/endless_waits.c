/* Preload library: a poll, and a wait for a condition on the steady clock, have no limit of time.
 * What ends all the same was woken. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <stddef.h>
#include <time.h>

int poll(struct pollfd* fds, nfds_t count, int timeout) {
    static int (*real)(struct pollfd*, nfds_t, int);
    if (real == NULL)
        real = (int (*)(struct pollfd*, nfds_t, int))dlsym(RTLD_NEXT, "poll");
    return real(fds, count, timeout > 0 ? -1 : timeout);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const struct timespec* deadline) {
    (void)clock;
    (void)deadline;
    return pthread_cond_wait(condition, mutex);
}

#if __SIZEOF_POINTER__ == 4
/* The same call's name in a 32-bit program whose times have 64 bits. */
int __pthread_cond_clockwait64(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                               const void* deadline) {
    (void)clock;
    (void)deadline;
    return pthread_cond_wait(condition, mutex);
}
#endif
