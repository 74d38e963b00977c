/* Makes the program's own calls fail on demand.
 *
 * Only calls from the program itself and from the C++ library on its behalf count; what cairo or
 * the virtual device do goes through: strace, which could make system calls fail as well, cannot
 * tell these apart. FAULT_CONTROL names a file that is mapped and shared with the test: it says
 * what is to fail, and tells what was called and struck. Nothing is allocated or locked, so that a
 * forked child may be struck as well. Comes first in LD_PRELOAD. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

/* Every function that can be struck, and what it gives when it fails. */
/* clang-format off */
#define EACH_WRAPPED(X) \
    X(bind, -1) X(chdir, -1) X(dup2, -1) X(eventfd, -1) X(eventfd_write, -1) X(execve, -1) \
    X(fcntl, -1) X(fflush, EOF) X(fork, -1) X(fstat, -1) X(getcwd, 0) X(gettimeofday, -1) \
    X(inotify_add_watch, -1) X(inotify_init, -1) X(inotify_rm_watch, -1) X(ioctl, -1) \
    X(isatty, 0) X(kill, -1) X(lseek, -1) X(mmap, -1) X(munmap, -1) X(nanosleep, -1) X(open, -1) \
    X(__open_2, -1) X(pathconf, -1) X(pipe2, -1) X(poll, -1) X(prctl, -1) X(pread, -1) \
    X(pthread_create, control->error) X(pthread_sigmask, control->error) X(read, -1) X(recv, -1) \
    X(sched_yield, -1) X(sem_wait, -1) X(shutdown, -1) X(signal, -1) X(sigprocmask, -1) \
    X(socket, -1) X(sysconf, -1) X(unlink, -1) X(waitpid, -1) X(write, -1)
#define EACH_FUNCTION(X) EACH_WRAPPED(X) X(close, -1) X(malloc, 0) X(syscall, -1)
/* clang-format on */

enum function {
#define NAME(function, failure) F_##function,
    EACH_FUNCTION(NAME)
#undef NAME
        FUNCTIONS
};

static const char* const names[FUNCTIONS] = {
#define NAME(function, failure) #function,
    EACH_FUNCTION(NAME)
#undef NAME
};

/* The layout that the test maps. */
struct control {
    char function[24]; /* the one that fails */
    int32_t countdown; /* it fails when this falls to 0, */
    int32_t failures;  /* and so often in a row */
    int32_t error;
    int32_t struck;    /* how often it has failed */
    int32_t functions; /* how many there are */
    int32_t calls[64];
    char name[64][24];
};

static struct control idle;
static struct control* control = &idle;
static void* real[FUNCTIONS];
static uintptr_t own_code[2][2]; /* first address and end of the program, of the C++ library */

static int note_object(struct dl_phdr_info* object, size_t size, void* data) {
    (void)size;
    (void)data;
    const int library = strstr(object->dlpi_name, "libstdc++") != NULL;
    if (object->dlpi_name[0] != '\0' && !library)
        return 0;
    uintptr_t* range = own_code[library ? 1 : 0];
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

/* No code is the program's own before the set-up. */
static int is_own_code(const void* caller) {
    const uintptr_t at = (uintptr_t)caller;
    return (at >= own_code[0][0] && at < own_code[0][1]) ||
           (at >= own_code[1][0] && at < own_code[1][1]);
}

/* Other libraries' constructors call before this one's set-up. */
static void* next_of(enum function function) {
    if (real[function] == NULL)
        real[function] = dlsym(RTLD_NEXT, names[function]);
    return real[function];
}

__attribute__((constructor)) static void set_up(void) {
    for (int i = 0; i < FUNCTIONS; ++i)
        next_of((enum function)i);
    dl_iterate_phdr(note_object, NULL);
    const char* path = getenv("FAULT_CONTROL");
    const int file = path == NULL ? -1 : open(path, O_RDWR | O_CLOEXEC);
    if (file < 0)
        return;
    void* shared = mmap(NULL, sizeof(struct control), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (shared == MAP_FAILED)
        return;
    control = shared;
    for (int i = 0; i < FUNCTIONS; ++i)
        strncpy(control->name[i], names[i], sizeof control->name[i] - 1);
    control->functions = FUNCTIONS;
}

static int strikes(enum function function, const void* caller) {
    if (!is_own_code(caller))
        return 0;
    __atomic_add_fetch(&control->calls[function], 1, __ATOMIC_RELAXED);
    if (strcmp(control->function, names[function]) != 0)
        return 0;
    const int32_t left = __atomic_sub_fetch(&control->countdown, 1, __ATOMIC_ACQ_REL);
    if (left > 0 || left <= -control->failures)
        return 0;
    __atomic_add_fetch(&control->struck, 1, __ATOMIC_RELEASE);
    errno = control->error;
    return 1;
}

/* Every one of these takes and gives whole numbers and addresses: what comes in is handed on, as
 * many words as any of them takes. */
#define PARAMETERS long a, long b, long c, long d, long e, long f, long g, long h
typedef long any_call(PARAMETERS);
#define HAND_ON(function) ((any_call*)next_of(F_##function))(a, b, c, d, e, f, g, h)
#define DECLARE(function) long call_##function(PARAMETERS) __asm__(#function)

#define WRAP(function, failure)                                                                    \
    DECLARE(function);                                                                             \
    long call_##function(PARAMETERS) {                                                             \
        return strikes(F_##function, __builtin_return_address(0)) ? (long)(failure)                \
                                                                  : HAND_ON(function);             \
    }
EACH_WRAPPED(WRAP)

/* A close that fails has closed all the same. */
DECLARE(close);
long call_close(PARAMETERS) {
    const long result = HAND_ON(close);
    return strikes(F_close, __builtin_return_address(0)) ? -1 : result;
}

/* The C library's own: there is no looking up before an allocator is there. */
extern void* __libc_malloc(size_t size);
void* malloc(size_t size) {
    return strikes(F_malloc, __builtin_return_address(0)) ? NULL : __libc_malloc(size);
}

/* The C++ library wakes those that wait for the first use of a static by SYS_futex: that cannot
 * fail. */
DECLARE(syscall);
long call_syscall(PARAMETERS) {
    return a != SYS_futex && strikes(F_syscall, __builtin_return_address(0)) ? -1
                                                                             : HAND_ON(syscall);
}
