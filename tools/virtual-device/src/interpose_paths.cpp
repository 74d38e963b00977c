// Calls that name a file or a socket without opening it.
#include "interpose.h"

#include "log.h"
#include "paths.h"
#include "real.h"

#include <cerrno>

using namespace virtual_device;

namespace {

/// `call` is called with the address to use and its length.
template <typename Call>
ssize_t callAddressed(const char* name, int fd, const sockaddr* address, socklen_t length,
                      Call call) {
    const MappedAddress target(address, length);
    if (!target.mapped()) {
        return call(address, length);
    }
    Record record("path", name);
    record.add("fd", fd);
    record.add("path", target.path());
    record.add("length", length);
    ssize_t result = -1;
    if (target.get() != nullptr) {
        record.add("mapped", reinterpret_cast<const sockaddr_un*>(target.get())->sun_path);
        result = call(target.get(), target.length());
    }
    record.finish(result, result < 0 ? errno : 0);
    return result;
}

} // namespace

VIRTUAL_DEVICE_EXPORT int access(const char* path, int mode) __THROW {
    return callMapped("access", path,
                      [=](const char* target) { return real().access(target, mode); });
}

VIRTUAL_DEVICE_EXPORT int faccessat(int folder, const char* path, int mode, int flags) __THROW {
    return callMapped("faccessat", path, [=](const char* target) {
        return real().faccessat(folder, target, mode, flags);
    });
}

VIRTUAL_DEVICE_EXPORT int stat(const char* path, struct stat* about) __THROW {
    return callMapped("stat", path, [=](const char* target) { return real().stat(target, about); });
}

VIRTUAL_DEVICE_EXPORT int stat64(const char* path, struct stat64* about) __THROW {
    return callMapped("stat64", path,
                      [=](const char* target) { return real().stat64(target, about); });
}

VIRTUAL_DEVICE_EXPORT int fstatat(int folder, const char* path, struct stat* about,
                                  int flags) __THROW {
    return callMapped("fstatat", path, [=](const char* target) {
        return real().fstatat(folder, target, about, flags);
    });
}

VIRTUAL_DEVICE_EXPORT int fstatat64(int folder, const char* path, struct stat64* about,
                                    int flags) __THROW {
    return callMapped("fstatat64", path, [=](const char* target) {
        return real().fstatat64(folder, target, about, flags);
    });
}

VIRTUAL_DEVICE_EXPORT int unlink(const char* path) __THROW {
    return callMapped("unlink", path, [](const char* target) { return real().unlink(target); });
}

VIRTUAL_DEVICE_EXPORT int unlinkat(int folder, const char* path, int flags) __THROW {
    return callMapped("unlinkat", path,
                      [=](const char* target) { return real().unlinkat(folder, target, flags); });
}

VIRTUAL_DEVICE_EXPORT int inotify_add_watch(int fd, const char* path, uint32_t mask) __THROW {
    return callMapped("inotify_add_watch", path, [=](const char* target) {
        return real().inotify_add_watch(fd, target, mask);
    });
}

VIRTUAL_DEVICE_EXPORT int bind(int fd, const sockaddr* address, socklen_t length) __THROW {
    return static_cast<int>(
        callAddressed("bind", fd, address, length, [=](const sockaddr* target, socklen_t size) {
            return real().bind(fd, target, size);
        }));
}

VIRTUAL_DEVICE_EXPORT int connect(int fd, const sockaddr* address, socklen_t length) {
    return static_cast<int>(
        callAddressed("connect", fd, address, length, [=](const sockaddr* target, socklen_t size) {
            return real().connect(fd, target, size);
        }));
}

VIRTUAL_DEVICE_EXPORT ssize_t sendto(int fd, const void* data, size_t bytes, int flags,
                                     const sockaddr* address, socklen_t length) {
    return callAddressed("sendto", fd, address, length,
                         [=](const sockaddr* target, socklen_t size) {
                             return real().sendto(fd, data, bytes, flags, target, size);
                         });
}
