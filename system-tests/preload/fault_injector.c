/* Makes the program's own system calls fail once, on demand.
 *
 * Only calls from the program itself and from the C++ library on its behalf count; what cairo or
 * the virtual device do goes through. FAULT_CONTROL names a file that is mapped and shared with the
 * test: it says what is to fail, and tells what was called and struck. Nothing is allocated or
 * locked, so that a forked child may be struck as well. Comes first in LD_PRELOAD. */
#define _GNU_SOURCE
#include "own_code.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

/* clang-format off */
#define EACH_FUNCTION(X) \
    X(bind) X(chdir) X(close) X(dup2) X(eventfd) X(eventfd_write) X(execve) X(fcntl) X(fflush) \
    X(fork) X(fstat) X(getcwd) X(gettimeofday) X(inotify_add_watch) X(inotify_init) \
    X(inotify_rm_watch) X(ioctl) X(isatty) X(kill) X(lseek) X(mmap) X(munmap) X(nanosleep) X(open) \
    X(__open_2) X(pathconf) X(pipe2) X(poll) X(prctl) X(pread) X(pthread_create) \
    X(pthread_sigmask) X(read) X(recv) X(sched_yield) X(sem_wait) X(shutdown) \
    X(signal) X(sigprocmask) X(socket) X(syscall) X(sysconf) X(unlink) X(waitpid) \
    X(write)
/* clang-format on */

enum function {
#define NAME(function) F_##function,
    EACH_FUNCTION(NAME)
#undef NAME
        FUNCTIONS
};

static const char* const names[FUNCTIONS] = {
#define NAME(function) #function,
    EACH_FUNCTION(NAME)
#undef NAME
};

/* The layout that the test maps; all 32-bit. */
struct control {
    int32_t function;  /* index of the one that fails; -1: none */
    int32_t countdown; /* it fails when this falls to 0 */
    int32_t error;
    int32_t struck;
    int32_t functions; /* how many there are */
    int32_t calls[64];
    char name[64][24];
};

static struct control idle = {.function = -1};
static struct control* control = &idle;
static void* real[FUNCTIONS];

/* Other libraries' constructors call before this one's set-up. */
static void* next_of(enum function function) {
    if (real[function] == NULL)
        real[function] = dlsym(RTLD_NEXT, names[function]);
    return real[function];
}

__attribute__((constructor)) static void set_up(void) {
    for (int i = 0; i < FUNCTIONS; ++i)
        next_of((enum function)i);
    find_own_code();
    const char* path = getenv("FAULT_CONTROL");
    if (path == NULL)
        return;
    const int file = ((int (*)(const char*, int, ...))next_of(F_open))(path, O_RDWR | O_CLOEXEC);
    if (file < 0)
        return;
    void* shared = ((void* (*)(void*, size_t, int, int, int, off_t))next_of(F_mmap))(
        NULL, sizeof(struct control), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ((int (*)(int))next_of(F_close))(file);
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
    if (__atomic_load_n(&control->function, __ATOMIC_ACQUIRE) != (int32_t)function)
        return 0;
    if (__atomic_sub_fetch(&control->countdown, 1, __ATOMIC_RELAXED) != 0)
        return 0;
    __atomic_store_n(&control->struck, 1, __ATOMIC_RELEASE);
    errno = control->error;
    return 1;
}

#define STRIKE(function, failure)                                                                  \
    if (strikes(F_##function, __builtin_return_address(0)))                                        \
    return failure

#define WRAP(result, failure, function, parameters, arguments)                                     \
    result function parameters {                                                                   \
        STRIKE(function, failure);                                                                 \
        return ((result(*) parameters)next_of(F_##function))arguments;                             \
    }

WRAP(int, -1, bind, (int fd, const struct sockaddr* address, socklen_t length),
     (fd, address, length))
WRAP(int, -1, chdir, (const char* path), (path))
WRAP(int, -1, dup2, (int from, int to), (from, to))
WRAP(int, -1, eventfd, (unsigned initial, int flags), (initial, flags))
WRAP(int, -1, eventfd_write, (int fd, uint64_t value), (fd, value))
WRAP(int, -1, execve, (const char* path, char* const* argv, char* const* envp), (path, argv, envp))
WRAP(int, EOF, fflush, (FILE * file), (file))
WRAP(pid_t, -1, fork, (void), ())
WRAP(int, -1, fstat, (int fd, struct stat* found), (fd, found))
WRAP(char*, NULL, getcwd, (char* buffer, size_t size), (buffer, size))
WRAP(int, -1, gettimeofday, (struct timeval * now, void* zone), (now, zone))
WRAP(int, -1, inotify_add_watch, (int fd, const char* path, uint32_t mask), (fd, path, mask))
WRAP(int, -1, inotify_init, (void), ())
WRAP(int, -1, inotify_rm_watch, (int fd, int watch), (fd, watch))
WRAP(int, 0, isatty, (int fd), (fd))
WRAP(int, -1, kill, (pid_t pid, int sig), (pid, sig))
WRAP(off_t, -1, lseek, (int fd, off_t place, int from), (fd, place, from))
WRAP(void*, MAP_FAILED, mmap, (void* at, size_t length, int prot, int flags, int fd, off_t offset),
     (at, length, prot, flags, fd, offset))
WRAP(int, -1, munmap, (void* at, size_t length), (at, length))
WRAP(int, -1, nanosleep, (const struct timespec* pause, struct timespec* rest), (pause, rest))
WRAP(int, -1, __open_2, (const char* path, int flags), (path, flags))
WRAP(long, -1, pathconf, (const char* path, int name), (path, name))
WRAP(int, -1, pipe2, (int ends[2], int flags), (ends, flags))
WRAP(int, -1, poll, (struct pollfd * fds, nfds_t count, int timeout), (fds, count, timeout))
WRAP(int, control->error, pthread_create,
     (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument),
     (thread, attributes, body, argument))
WRAP(int, control->error, pthread_sigmask, (int how, const sigset_t* next, sigset_t* last),
     (how, next, last))
WRAP(ssize_t, -1, pread, (int fd, void* buffer, size_t size, off_t place),
     (fd, buffer, size, place))
WRAP(ssize_t, -1, read, (int fd, void* buffer, size_t size), (fd, buffer, size))
WRAP(ssize_t, -1, recv, (int fd, void* buffer, size_t size, int flags), (fd, buffer, size, flags))
WRAP(int, -1, sched_yield, (void), ())
WRAP(int, -1, shutdown, (int fd, int how), (fd, how))
WRAP(int, -1, sigprocmask, (int how, const sigset_t* next, sigset_t* last), (how, next, last))
WRAP(int, -1, socket, (int domain, int type, int protocol), (domain, type, protocol))
WRAP(long, -1, sysconf, (int name), (name))
WRAP(int, -1, unlink, (const char* path), (path))
WRAP(pid_t, -1, waitpid, (pid_t pid, int* status, int options), (pid, status, options))
WRAP(ssize_t, -1, write, (int fd, const void* data, size_t size), (fd, data, size))

/* A close that fails has closed all the same. */
int close(int fd) {
    const int result = ((int (*)(int))next_of(F_close))(fd);
    STRIKE(close, -1);
    return result;
}

WRAP(sighandler_t, SIG_ERR, signal, (int sig, sighandler_t next), (sig, next))

typedef union semaphore semaphore;
int sem_wait(semaphore* waited) {
    STRIKE(sem_wait, -1);
    return ((int (*)(semaphore*))next_of(F_sem_wait))(waited);
}

/* One argument at most follows in every use. */
static void* further(va_list list) {
    return va_arg(list, void*);
}

#define WRAP_VARIADIC(function, parameters, last, arguments)                                       \
    int function parameters {                                                                      \
        STRIKE(function, -1);                                                                      \
        va_list list;                                                                              \
        va_start(list, last);                                                                      \
        void* const argument = further(list);                                                      \
        va_end(list);                                                                              \
        return ((int(*) parameters)next_of(F_##function))arguments;                                \
    }

WRAP_VARIADIC(open, (const char* path, int flags, ...), flags, (path, flags, argument))
WRAP_VARIADIC(fcntl, (int fd, int command, ...), command, (fd, command, argument))
WRAP_VARIADIC(ioctl, (int fd, unsigned long request, ...), request, (fd, request, argument))

/* The C++ library wakes those that wait for the first use of a static by SYS_futex: that cannot fail. */
long syscall(long number, ...) {
    if (number != SYS_futex)
        STRIKE(syscall, -1);
    long rest[6];
    va_list list;
    va_start(list, number);
    for (int i = 0; i < 6; ++i)
        rest[i] = va_arg(list, long);
    va_end(list);
    return ((long (*)(long, ...))next_of(F_syscall))(number, rest[0], rest[1], rest[2], rest[3],
                                                     rest[4], rest[5]);
}

int prctl(int option, ...) {
    STRIKE(prctl, -1);
    unsigned long rest[4];
    va_list list;
    va_start(list, option);
    for (int i = 0; i < 4; ++i)
        rest[i] = va_arg(list, unsigned long);
    va_end(list);
    return ((int (*)(int, ...))next_of(F_prctl))(option, rest[0], rest[1], rest[2], rest[3]);
}
