#include "descriptors.h"

#include <array>
#include <atomic>

namespace virtual_device {
namespace {

constexpr int MOST_DESCRIPTORS = 1 << 16;
std::array<std::atomic<bool>, MOST_DESCRIPTORS> devices;

bool isKept(int fd) {
    return fd >= 0 && fd < MOST_DESCRIPTORS;
}

} // namespace

bool isDevice(int fd) {
    return isKept(fd) && devices[unsigned(fd)].load(std::memory_order_acquire);
}

bool setDevice(int fd, bool isDevice) {
    if (isKept(fd)) {
        devices[unsigned(fd)].store(isDevice, std::memory_order_release);
    }
    return isKept(fd);
}

void forgetDescriptors() {
    for (auto& device : devices) {
        if (device.load(std::memory_order_relaxed)) {
            device.store(false, std::memory_order_relaxed);
        }
    }
}

} // namespace virtual_device
