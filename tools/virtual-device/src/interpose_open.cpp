// Calls that open a file: the device is opened here, fixed paths lead below the root.
#include "interpose.h"

#include "calls.h"
#include "paths.h"
#include "real.h"

#include <cstdarg>

using namespace virtual_device;

namespace {

bool needsMode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

template <typename Open>
int openMapped(const char* name, const char* path, int flags, Open open) {
    return isDevicePath(path) ? openDevice(name, flags) : callMapped(name, path, open);
}

} // namespace

// The mode of a new file stands behind the named arguments where the flags say so.
#define TAKE_MODE(flags)                                                                           \
    mode_t mode = 0;                                                                               \
    if (needsMode(flags)) {                                                                        \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        mode = va_arg(arguments, mode_t);                                                          \
        va_end(arguments);                                                                         \
    }

VIRTUAL_DEVICE_EXPORT int open(const char* path, int flags, ...) {
    TAKE_MODE(flags)
    return openMapped("open", path, flags,
                      [=](const char* target) { return real().open(target, flags, mode); });
}

VIRTUAL_DEVICE_EXPORT int open64(const char* path, int flags, ...) {
    TAKE_MODE(flags)
    return openMapped("open64", path, flags,
                      [=](const char* target) { return real().open64(target, flags, mode); });
}

VIRTUAL_DEVICE_EXPORT int openat(int folder, const char* path, int flags, ...) {
    TAKE_MODE(flags)
    return openMapped("openat", path, flags, [=](const char* target) {
        return real().openat(folder, target, flags, mode);
    });
}

VIRTUAL_DEVICE_EXPORT int openat64(int folder, const char* path, int flags, ...) {
    TAKE_MODE(flags)
    return openMapped("openat64", path, flags, [=](const char* target) {
        return real().openat64(folder, target, flags, mode);
    });
}

// What fortified programs call where the flags are not known at compile time and no mode is given.
// NOLINTBEGIN(bugprone-reserved-identifier): the C library's names
VIRTUAL_DEVICE_EXPORT int __open_2(const char* path, int flags) {
    return openMapped("__open_2", path, flags,
                      [=](const char* target) { return real().open(target, flags); });
}

VIRTUAL_DEVICE_EXPORT int __open64_2(const char* path, int flags) {
    return openMapped("__open64_2", path, flags,
                      [=](const char* target) { return real().open64(target, flags); });
}

// NOLINTEND(bugprone-reserved-identifier)

VIRTUAL_DEVICE_EXPORT FILE* fopen(const char* path, const char* mode) {
    return callMapped("fopen", path,
                      [=](const char* target) { return real().fopen(target, mode); });
}

VIRTUAL_DEVICE_EXPORT FILE* fopen64(const char* path, const char* mode) {
    return callMapped("fopen64", path,
                      [=](const char* target) { return real().fopen64(target, mode); });
}
