#include "descriptors.h"

#include <array>
#include <atomic>
#include <cstdint>

namespace virtual_device {
namespace {

constexpr int MOST_DESCRIPTORS = 1 << 16;
std::array<std::atomic<std::uint8_t>, MOST_DESCRIPTORS> handles; // handle + 1, 0 for none

} // namespace

int handleOf(int fd) {
    if (fd < 0 || fd >= MOST_DESCRIPTORS) {
        return NO_HANDLE;
    }
    return int(handles[unsigned(fd)].load(std::memory_order_acquire)) - 1;
}

bool setHandle(int fd, int handle) {
    if (fd < 0 || fd >= MOST_DESCRIPTORS) {
        return false;
    }
    handles[unsigned(fd)].store(static_cast<std::uint8_t>(handle + 1), std::memory_order_release);
    return true;
}

void forgetHandles() {
    for (auto& handle : handles) {
        if (handle.load(std::memory_order_relaxed) != 0) {
            handle.store(0, std::memory_order_relaxed);
        }
    }
}

} // namespace virtual_device
