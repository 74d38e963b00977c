/// \file
/// Which descriptors of the process are the device's. Lock-free: also for use in a signal handler
/// and between fork and exec.
#pragma once

namespace virtual_device {

constexpr int NO_HANDLE = -1;

/// The device handle behind a descriptor, or NO_HANDLE.
int handleOf(int fd);
/// False where the number is too high to be kept.
bool setHandle(int fd, int handle);
/// No descriptor is the device's any more: the child of a fork.
void forgetHandles();

} // namespace virtual_device
