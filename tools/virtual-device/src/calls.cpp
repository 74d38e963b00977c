#include "calls.h"

#include "describe.h"
#include "descriptors.h"
#include "device.h"
#include "faults.h"
#include "log.h"
#include "paths.h"
#include "real.h"

#include <cerrno>

namespace virtual_device {
namespace {

int finish(Record& record, int result, int error) {
    record.finish(error != 0 ? -1 : result, error);
    if (error != 0) {
        errno = error;
    }
    return error != 0 ? -1 : result;
}

/// A descriptor that looks like a character device.
int openStandIn(int flags, int& fd) {
    fd = real().open("/dev/null", flags & (O_ACCMODE | O_CLOEXEC));
    if (fd < 0) {
        return errno;
    }
    if (!setDevice(fd, true)) {
        real().close(fd);
        return EMFILE;
    }
    return 0;
}

} // namespace

int openDevice(const char* name, int flags) {
    Record record("device", "open");
    record.add("function", name);
    record.add("path", DEVICE_PATH);
    record.add("flags", flags);
    int fd = -1;
    int error = strike(Op::OPEN);
    if (error == 0) {
        error = openStandIn(flags, fd);
    }
    return finish(record, fd, error);
}

int closeDevice(int fd) {
    Record record("device", "close");
    record.add("fd", fd);
    int error = strike(Op::CLOSE);
    // The number is free from the real close on, so it is forgotten before. As with any device the
    // descriptor is gone even if the close reports a failure.
    setDevice(fd, false);
    device().endOpening(fd);
    real().close(fd);
    return finish(record, 0, error);
}

int controlDevice(int fd, unsigned long request, void* argument) {
    // The kernel looks at 32 bits; a program may have them sign-extended.
    const auto code = static_cast<std::uint32_t>(request);
    const Op op = opOf(code);
    Record record("device", op != Op::COUNT ? opName(op) : "ioctl");
    record.add("fd", fd);
    if (op == Op::COUNT) {
        record.addHex("request", code);
    }
    describe(record, "in", code, argument, false);
    int error = op != Op::COUNT ? strike(op) : 0;
    if (error == 0) {
        error = device().ioctl(fd, code, argument);
    }
    if (error == 0) {
        describe(record, "out", code, argument, true);
    }
    return finish(record, 0, error);
}

void* mapDevice(int fd, void* hint, std::size_t bytes, int protection, int flags,
                std::int64_t offset) {
    Record record("device", "mmap");
    record.add("fd", fd);
    record.add("length", static_cast<std::int64_t>(bytes));
    record.add("prot", protection);
    record.add("flags", flags);
    record.add("offset", offset);
    void* start = MAP_FAILED;
    int error = strike(Op::MMAP);
    if (error == 0) {
        error =
            device().map(hint, bytes, protection, flags, static_cast<std::uint64_t>(offset), start);
    }
    if (error == 0) {
        record.addHex("address", reinterpret_cast<std::uintptr_t>(start));
    }
    finish(record, 0, error);
    return start;
}

bool isDeviceMapping(const void* start) {
    const Device* used = deviceIfUsed();
    return used != nullptr && used->isMapped(start);
}

int unmapDevice(void* start, std::size_t bytes) {
    Record record("device", "munmap");
    record.addHex("address", reinterpret_cast<std::uintptr_t>(start));
    record.add("length", static_cast<std::int64_t>(bytes));
    int error = strike(Op::MUNMAP);
    if (error == 0) {
        error = device().unmap(start, bytes);
    }
    return finish(record, 0, error);
}

} // namespace virtual_device
