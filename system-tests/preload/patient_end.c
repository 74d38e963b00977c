/* Preload library: the end waits for the display for as long as it takes, so that no test depends on how
 * fast a busy machine draws. Nothing else waits for a condition with a deadline on the steady clock, but
 * for a loop whose wall clock stands before 1970. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <pthread.h>
#include <stddef.h>
#include <time.h>

static int wait_without_limit(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    static int (*real)(pthread_cond_t*, pthread_mutex_t*);
    if (real == NULL)
        real = (int (*)(pthread_cond_t*, pthread_mutex_t*))dlsym(RTLD_NEXT, "pthread_cond_wait");
    return real(condition, mutex);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const struct timespec* deadline) {
    (void)clock;
    (void)deadline;
    return wait_without_limit(condition, mutex);
}

#if __SIZEOF_POINTER__ == 4
/* The same call's name in a 32-bit program whose times have 64 bits. */
int __pthread_cond_clockwait64(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                               const void* deadline) {
    (void)clock;
    (void)deadline;
    return wait_without_limit(condition, mutex);
}
#endif
