/// \file
/// What the calls on the device do behind the C library's names. Like those they return -1 and set
/// errno on failure; each call is counted for faults and recorded.
#pragma once

#include <cstddef>
#include <cstdint>

namespace virtual_device {

/// Opens the device with open(2)'s flags. `name` is the function that the program called.
int openDevice(const char* name, int flags);
int closeDevice(int fd);
int controlDevice(int fd, unsigned long request, void* argument);
void* mapDevice(int fd, void* hint, std::size_t bytes, int protection, int flags,
                std::int64_t offset);
/// True where a mapping of the device starts.
bool isDeviceMapping(const void* start);
int unmapDevice(void* start, std::size_t bytes);

} // namespace virtual_device
