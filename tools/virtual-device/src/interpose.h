/// \file
/// For the files that put this library's functions before those of the C library.
#pragma once

#include "log.h"
#include "paths.h"

#include <cerrno>
#include <type_traits>

#define VIRTUAL_DEVICE_EXPORT extern "C" __attribute__((visibility("default")))

namespace virtual_device {

/// What a call gives that fails.
template <typename Result>
constexpr Result failure() {
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else {
        return -1;
    }
}

/// Calls `call` with the path to use, and records it where that is another one. `name` is the
/// function that the program called.
template <typename Call>
auto callMapped(const char* name, const char* path, Call call) {
    const MappedPath target(path);
    if (!target.mapped()) {
        return call(target.get());
    }
    Record record("path", name);
    record.add("path", path);
    record.add("mapped", target.get());
    auto result = failure<decltype(call(path))>();
    if (target.get() != nullptr) {
        result = call(target.get());
    } else {
        errno = ENAMETOOLONG;
    }
    const bool failed = result == failure<decltype(call(path))>();
    record.finish(failed ? -1 : 0, failed ? errno : 0);
    return result;
}

} // namespace virtual_device
