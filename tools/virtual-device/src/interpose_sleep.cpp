// Sleeps are passed on and recorded: they are the other half of the frame pacing.
#include "interpose.h"

#include "log.h"
#include "real.h"

#include <cerrno>

using namespace virtual_device;

namespace {

std::int64_t inNs(const timespec* time) {
    return time != nullptr ? std::int64_t(time->tv_sec) * 1000000000 + time->tv_nsec : -1;
}

} // namespace

VIRTUAL_DEVICE_EXPORT int nanosleep(const timespec* request, timespec* rest) {
    Record record("sleep", "nanosleep");
    record.add("requested_ns", inNs(request));
    const int result = real().nanosleep(request, rest);
    record.finish(result, result < 0 ? errno : 0);
    return result;
}
