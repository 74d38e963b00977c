// Calls on descriptors and memory: those of the device are answered here, all others passed on.
#include "interpose.h"

#include "calls.h"
#include "descriptors.h"
#include "real.h"

#include <cstdarg>

using namespace virtual_device;

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
    return isDeviceMapping(start) ? unmapDevice(start, bytes) : real().munmap(start, bytes);
}

VIRTUAL_DEVICE_EXPORT int close(int fd) {
    return isDevice(fd) ? closeDevice(fd) : real().close(fd);
}
