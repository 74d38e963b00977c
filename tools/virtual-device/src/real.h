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
    X(access) X(bind) X(chmod) X(clock_nanosleep) X(close) X(close_range) X(connect) X(dup) \
    X(dup2) X(dup3) X(execve) X(execvpe) X(faccessat) X(fcntl) X(fcntl64) X(fopen) X(fopen64) X(freopen) \
    X(freopen64) X(fstatat) X(fstatat64) X(inotify_add_watch) X(ioctl) X(lstat) X(lstat64) \
    X(mmap) X(mmap64) X(munmap) X(nanosleep) X(open) X(open64) X(openat) X(openat64) \
    X(posix_spawn) X(posix_spawnp) X(sendto) X(stat) X(stat64) X(statx) X(unlink) X(unlinkat)
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
/// exec, and known to isOwnDescriptor. Returns the new number, or -1 as `fd` was.
int keepOwnDescriptor(int fd);
void closeOwnDescriptor(int fd);
bool isOwnDescriptor(int fd);

/// Forgets which descriptors are the library's own: the child of a fork may close what it likes.
void forgetOwnDescriptors();

std::int64_t monotonicNs();

/// Waits until `word` is no longer `value` or somebody calls wakeAll. `deadlineNs` is
/// CLOCK_MONOTONIC time, or negative for none. Returns 0, ETIMEDOUT, or, where there is no deadline
/// and a signal handler without SA_RESTART ran, EINTR. With a deadline, EINTR after any handler.
int waitWhile(const void* word, std::uint32_t value, std::int64_t deadlineNs);
void wakeAll(const void* word, bool otherProcesses);

} // namespace virtual_device
