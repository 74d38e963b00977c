// Calls on descriptors and memory: those of the device are answered here, all others passed on.
#include "interpose.h"

#include "calls.h"
#include "descriptors.h"
#include "real.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>

using namespace virtual_device;

namespace {

bool isDevice(int fd) {
    return handleOf(fd) != NO_HANDLE;
}

/// Closes first..last but for this library's own descriptors.
int closeRangeAround(unsigned first, unsigned last, int flags) {
    constexpr unsigned most = 1U << 16U;
    int result = 0;
    for (unsigned fd = first; fd <= std::min(last, most); ++fd) {
        if (isDevice(int(fd))) {
            closeDevice(int(fd));
        }
        if (!isOwnDescriptor(int(fd))) {
            continue;
        }
        if (fd > first) {
            result |= real().close_range(first, fd - 1, flags);
        }
        first = fd + 1;
    }
    return first <= last ? result | real().close_range(first, last, flags) : result;
}

int duplicateTo(int from, int to, int flags, bool withFlags) {
    const int result = withFlags ? real().dup3(from, to, flags) : real().dup2(from, to);
    noteDuplicate(from, result);
    return result;
}

template <typename Function>
int control(Function function, int fd, int command, void* argument) {
    const int result = function(fd, command, argument);
    if (command == F_DUPFD || command == F_DUPFD_CLOEXEC) {
        noteDuplicate(fd, result);
    }
    return result;
}

} // namespace

VIRTUAL_DEVICE_EXPORT int ioctl(int fd, unsigned long request, ...) __THROW {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return isDevice(fd) ? controlDevice(fd, request, argument)
                        : real().ioctl(fd, request, argument);
}

VIRTUAL_DEVICE_EXPORT void* mmap(void* hint, size_t bytes, int protection, int flags, int fd,
                                 off_t offset) __THROW {
    return isDevice(fd) && (flags & MAP_ANONYMOUS) == 0
               ? mapDevice(fd, hint, bytes, protection, flags, offset)
               : real().mmap(hint, bytes, protection, flags, fd, offset);
}

VIRTUAL_DEVICE_EXPORT void* mmap64(void* hint, size_t bytes, int protection, int flags, int fd,
                                   off64_t offset) __THROW {
    return isDevice(fd) && (flags & MAP_ANONYMOUS) == 0
               ? mapDevice(fd, hint, bytes, protection, flags, offset)
               : real().mmap64(hint, bytes, protection, flags, fd, offset);
}

VIRTUAL_DEVICE_EXPORT int munmap(void* start, size_t bytes) __THROW {
    return isDeviceMapping(start, bytes) ? unmapDevice(start, bytes) : real().munmap(start, bytes);
}

VIRTUAL_DEVICE_EXPORT int close(int fd) {
    if (isDevice(fd)) {
        return closeDevice(fd);
    }
    if (isOwnDescriptor(fd)) {
        errno = EBADF;
        return -1;
    }
    return real().close(fd);
}

VIRTUAL_DEVICE_EXPORT int close_range(unsigned first, unsigned last, int flags) __THROW {
    if (flags != 0 || first > last) {
        return real().close_range(first, last, flags);
    }
    return closeRangeAround(first, last, flags);
}

VIRTUAL_DEVICE_EXPORT int dup(int fd) __THROW {
    const int result = real().dup(fd);
    noteDuplicate(fd, result);
    return result;
}

VIRTUAL_DEVICE_EXPORT int dup2(int from, int to) __THROW {
    return duplicateTo(from, to, 0, false);
}

VIRTUAL_DEVICE_EXPORT int dup3(int from, int to, int flags) __THROW {
    return duplicateTo(from, to, flags, true);
}

VIRTUAL_DEVICE_EXPORT int fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return control(real().fcntl, fd, command, argument);
}

VIRTUAL_DEVICE_EXPORT int fcntl64(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return control(real().fcntl64, fd, command, argument);
}
