#include "real.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <dlfcn.h>
#include <linux/futex.h>
#include <sys/syscall.h>

namespace virtual_device {
namespace {

Real table;
std::atomic<bool> resolved{false};

constexpr int HIGH_DESCRIPTOR = 900;

template <typename Function>
void resolve(Function*& target, const char* name) {
    target = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

const Real& real() {
    if (!resolved.load(std::memory_order_acquire)) {
#define VIRTUAL_DEVICE_RESOLVE(name) resolve(table.name, #name);
        VIRTUAL_DEVICE_CALLS(VIRTUAL_DEVICE_RESOLVE)
#undef VIRTUAL_DEVICE_RESOLVE
        resolved.store(true, std::memory_order_release);
    }
    return table;
}

int keepOwnDescriptor(int fd) {
    const int high = fd < 0 ? fd : fcntl(fd, F_DUPFD_CLOEXEC, HIGH_DESCRIPTOR);
    if (high < 0) {
        return fd;
    }
    real().close(fd);
    return high;
}

std::int64_t monotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
}

int waitWhile(const void* word, std::uint32_t value, std::int64_t deadlineNs) {
    timespec deadline{};
    if (deadlineNs >= 0) {
        deadline.tv_sec = static_cast<time_t>(deadlineNs / 1000000000);
        deadline.tv_nsec = static_cast<long>(deadlineNs % 1000000000);
    }
    // The bit set form takes a point in time, and without one it is restarted after a signal just
    // as a driver's interruptible wait is.
    const long result =
        syscall(SYS_futex, word, FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG, value,
                deadlineNs >= 0 ? &deadline : nullptr, nullptr, FUTEX_BITSET_MATCH_ANY);
    if (result == 0 || errno == EAGAIN) {
        return 0;
    }
    return errno;
}

void wakeAll(const void* word, bool otherProcesses) {
    syscall(SYS_futex, word, FUTEX_WAKE | (otherProcesses ? 0 : FUTEX_PRIVATE_FLAG), INT_MAX,
            nullptr, nullptr, 0);
}

} // namespace virtual_device
