/// \file
/// Structures of the device's calls, as JSON.
#pragma once

#include "faults.h"
#include "log.h"

namespace virtual_device {

/// The operation behind an ioctl request, or Op::COUNT for one that the device does not know.
Op opOf(std::uint32_t request);

/// Adds object `key` with the fields of the request's structure. `filled` is false before the call:
/// then only what the call reads is told.
void describe(Record& record, const char* key, std::uint32_t request, const void* argument,
              bool filled);

} // namespace virtual_device
