/* Preload library: makes allocations of the program fail, on demand.
 *
 * Only those that the program itself and the C++ library on its behalf ask for count; what cairo
 * and the virtual device do goes through. FAILING_MALLOC names a file that is mapped and shared
 * with the test: three 32-bit numbers, the countdown to the allocation that fails (0: none), how
 * many fail from there on, and how many have failed. Comes first in LD_PRELOAD. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

struct control {
    int32_t countdown;
    int32_t failures;
    int32_t failed;
};

static struct control idle;
static struct control* control = &idle;
static uintptr_t ranges[2][2]; /* the program, the C++ library */

/* The C library's own: there is no looking up before an allocator is there. */
extern void* __libc_malloc(size_t size);

static int note_object(struct dl_phdr_info* object, size_t size, void* data) {
    (void)size;
    (void)data;
    const int library = strstr(object->dlpi_name, "libstdc++") != NULL;
    if (object->dlpi_name[0] != '\0' && !library)
        return 0;
    uintptr_t* range = ranges[library ? 1 : 0];
    if (range[1] != 0)
        return 0; /* the kernel's object has no name, either, and comes after the program */
    range[0] = UINTPTR_MAX;
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr)* part = &object->dlpi_phdr[i];
        if (part->p_type != PT_LOAD)
            continue;
        const uintptr_t begin = object->dlpi_addr + part->p_vaddr;
        if (begin < range[0])
            range[0] = begin;
        if (begin + part->p_memsz > range[1])
            range[1] = begin + part->p_memsz;
    }
    return 0;
}

__attribute__((constructor)) static void set_up(void) {
    dl_iterate_phdr(note_object, NULL);
    const char* path = getenv("FAILING_MALLOC");
    const int file = path == NULL ? -1 : open(path, O_RDWR | O_CLOEXEC);
    if (file < 0)
        return;
    void* shared = mmap(NULL, sizeof(struct control), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (shared != MAP_FAILED)
        control = shared;
}

static int within(const uintptr_t range[2], uintptr_t at) {
    return at >= range[0] && at < range[1];
}

void* malloc(size_t size) {
    const uintptr_t at = (uintptr_t)__builtin_return_address(0);
    if (__atomic_load_n(&control->countdown, __ATOMIC_ACQUIRE) > -control->failures &&
        control->failures > 0 && (within(ranges[0], at) || within(ranges[1], at))) {
        const int32_t left = __atomic_sub_fetch(&control->countdown, 1, __ATOMIC_RELAXED);
        if (left <= 0 && left > -control->failures) {
            __atomic_add_fetch(&control->failed, 1, __ATOMIC_RELEASE);
            errno = ENOMEM;
            return NULL;
        }
    }
    return __libc_malloc(size);
}
