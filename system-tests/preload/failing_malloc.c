/* Preload library: makes allocations of the program fail, on demand.
 *
 * Only those that the program itself and the C++ library on its behalf ask for count; what cairo
 * and the virtual device do goes through. FAILING_MALLOC names a file that is mapped and shared
 * with the test: three 32-bit numbers, the countdown to the allocation that fails (0: none), how
 * many fail from there on, and how many have failed. Comes first in LD_PRELOAD. */
#define _GNU_SOURCE
#include "own_code.h"

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

struct control {
    int32_t countdown;
    int32_t failures;
    int32_t failed;
};

static struct control idle;
static struct control* control = &idle;

/* The C library's own: there is no looking up before an allocator is there. */
extern void* __libc_malloc(size_t size);

__attribute__((constructor)) static void set_up(void) {
    find_own_code();
    const char* path = getenv("FAILING_MALLOC");
    const int file = path == NULL ? -1 : open(path, O_RDWR | O_CLOEXEC);
    if (file < 0)
        return;
    void* shared = mmap(NULL, sizeof(struct control), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (shared != MAP_FAILED)
        control = shared;
}

void* malloc(size_t size) {
    if (__atomic_load_n(&control->countdown, __ATOMIC_ACQUIRE) > -control->failures &&
        control->failures > 0 && is_own_code(__builtin_return_address(0))) {
        const int32_t left = __atomic_sub_fetch(&control->countdown, 1, __ATOMIC_RELAXED);
        if (left <= 0 && left > -control->failures) {
            __atomic_add_fetch(&control->failed, 1, __ATOMIC_RELEASE);
            errno = ENOMEM;
            return NULL;
        }
    }
    return __libc_malloc(size);
}
