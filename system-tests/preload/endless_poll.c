/* Preload library: a poll has no limit of time. What ends all the same was woken. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <poll.h>
#include <stddef.h>

int poll(struct pollfd* fds, nfds_t count, int timeout) {
    static int (*real)(struct pollfd*, nfds_t, int);
    if (real == NULL)
        real = (int (*)(struct pollfd*, nfds_t, int))dlsym(RTLD_NEXT, "poll");
    return real(fds, count, timeout > 0 ? -1 : timeout);
}
