// The names that the C library of a 32-bit machine gives to calls of programs whose times have 64
// bits.
#include "interpose.h"

#if __SIZEOF_POINTER__ == 4

#include "log.h"
#include "real.h"

#include <cerrno>
#include <cstdarg>
#include <cstdint>

using namespace virtual_device;

namespace {

struct Time64 {
    std::int64_t seconds;
    std::int32_t nanoseconds;
    std::int32_t padding;
};

} // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) __THROW;

VIRTUAL_DEVICE_EXPORT int __ioctl_time64(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return ioctl(fd, request, argument);
}

/// Sleeps are short here: they fit.
VIRTUAL_DEVICE_EXPORT int __nanosleep64(const Time64* request, Time64* rest) {
    const timespec wanted{static_cast<time_t>(request->seconds), request->nanoseconds};
    timespec left{};
    const int result = nanosleep(&wanted, &left);
    if (result < 0 && rest != nullptr) {
        *rest = {left.tv_sec, static_cast<std::int32_t>(left.tv_nsec), 0};
    }
    return result;
}

#endif
