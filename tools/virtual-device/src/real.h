/// \file
/// The C library's own functions behind the ones that this library puts in front of them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/reboot.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

// clang-format off
#define VIRTUAL_DEVICE_CALLS(X) \
    X(access) X(bind) X(close) X(connect) X(execve) X(execvpe) X(faccessat) X(fopen) X(fopen64) \
    X(fstatat) X(fstatat64) X(inotify_add_watch) X(ioctl) X(mmap) X(mmap64) X(munmap) X(nanosleep) \
    X(open) X(open64) X(openat) X(openat64) X(posix_spawn) X(posix_spawnp) X(sendto) X(stat) \
    X(stat64) X(unlink) X(unlinkat)
// clang-format on

namespace virtual_device {

/// The next definition of each call in the search order.
struct Real {
// NOLINTNEXTLINE(bugprone-macro-parentheses): a declaration takes none
#define VIRTUAL_DEVICE_MEMBER(name) decltype(&::name) name;
    VIRTUAL_DEVICE_CALLS(VIRTUAL_DEVICE_MEMBER)
#undef VIRTUAL_DEVICE_MEMBER
};

/// Safe from any thread at any time, also before this library's own start and, once that is done,
/// between fork and exec.
const Real& real();

/// Moves a descriptor of the library's own out of the program's way: to a high number, closed on
/// exec. Returns the new number, or `fd` where that cannot be had.
int keepOwnDescriptor(int fd);

std::int64_t monotonicNs();

/// Waits until `word` is no longer `value` or somebody calls wakeAll. `deadlineNs` is
/// CLOCK_MONOTONIC time, or negative for none. Returns 0, ETIMEDOUT, or, where there is no deadline
/// and a signal handler without SA_RESTART ran, EINTR. With a deadline, EINTR after any handler.
int waitWhile(const void* word, std::uint32_t value, std::int64_t deadlineNs);
void wakeAll(const void* word, bool otherProcesses);

} // namespace virtual_device
