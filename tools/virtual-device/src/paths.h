/// \file
/// Where the program's fixed absolute paths lead on a desk.
#pragma once

#include <climits>
#include <sys/socket.h>
#include <sys/un.h>

namespace virtual_device {

constexpr const char* DEVICE_PATH = "/dev/v4l/by-path/platform-imx-ipuv3-ovl.5-video-index0";

/// True for the device's path, where there is a virtual device.
bool isDevicePath(const char* path);

/// A path as it is on the desk. Needs no allocation: also for use between fork and exec.
class MappedPath {
public:
    /// What opens or runs a file.
    explicit MappedPath(const char* path);

    MappedPath(const MappedPath&) = delete;
    MappedPath& operator=(const MappedPath&) = delete;

    /// The path to use; null where it is too long (the call then fails with ENAMETOOLONG).
    const char* get() const { return m_path; }
    bool mapped() const { return m_mapped; }
    /// True for a reboot program where there is no root below which it could lie: never run it.
    bool forbidden() const { return m_forbidden; }

private:
    const char* m_path;
    bool m_mapped = false;
    bool m_forbidden = false;
    char m_buffer[PATH_MAX];
};

/// The address of a socket as it is on the desk. A root of any length fits: where the path is too
/// long for an address it is reached through the descriptor of its opened folder.
class MappedAddress {
public:
    MappedAddress(const sockaddr* address, socklen_t length);
    ~MappedAddress();

    MappedAddress(const MappedAddress&) = delete;
    MappedAddress& operator=(const MappedAddress&) = delete;

    /// Null where the folder cannot be opened; errno says why.
    const sockaddr* get() const { return m_address; }
    socklen_t length() const { return m_length; }
    bool mapped() const { return m_mapped; }
    const char* path() const { return m_original; }

private:
    void use(const char* path);

    const sockaddr* m_address;
    socklen_t m_length;
    bool m_mapped = false;
    int m_folder = -1;
    char m_original[sizeof(sockaddr_un::sun_path) + 1] = "";
    sockaddr_un m_own{};
};

} // namespace virtual_device
