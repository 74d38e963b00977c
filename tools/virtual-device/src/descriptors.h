/// \file
/// Which descriptors of the process are the device's. Lock-free: also for use in a signal handler
/// and between fork and exec.
#pragma once

namespace virtual_device {

bool isDevice(int fd);
/// False where the number is too high to be kept.
bool setDevice(int fd, bool isDevice);
/// No descriptor is the device's any more: the child of a fork.
void forgetDescriptors();

} // namespace virtual_device
