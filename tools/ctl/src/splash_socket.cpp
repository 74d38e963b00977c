#include "splash_socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

namespace client {
namespace {

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0)
            close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

/// The address of a path; one that is too long for an address is reached through its folder.
class Address {
public:
    explicit Address(const std::string& path) : m_folder(openFolder(path)) {
        std::string name = path;
        if (m_folder.get() >= 0)
            name = "/proc/self/fd/" + std::to_string(m_folder.get()) + "/" +
                   path.substr(path.rfind('/') + 1);
        m_address.sun_family = AF_UNIX;
        m_fits = name.size() < sizeof m_address.sun_path;
        if (m_fits)
            std::memcpy(m_address.sun_path, name.c_str(), name.size() + 1);
    }

    /// Connects; 0, or the error.
    int connect(int fd) const {
        if (!m_fits)
            return ENAMETOOLONG;
        const auto* address = reinterpret_cast<const sockaddr*>(&m_address);
        return ::connect(fd, address, sizeof m_address) == 0 ? 0 : errno;
    }

private:
    static int openFolder(const std::string& path) {
        const auto slash = path.rfind('/');
        if (path.size() < sizeof(sockaddr_un::sun_path) || slash == std::string::npos)
            return -1;
        return open(path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    }

    Descriptor m_folder;
    sockaddr_un m_address{};
    bool m_fits = false;
};

SplashSocket::Answer answerOf(int error) {
    switch (error) {
    case 0:
        return SplashSocket::Answer::ANSWERS;
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED:
        return SplashSocket::Answer::NOBODY;
    case EACCES:
    case EPERM:
        return SplashSocket::Answer::FORBIDDEN;
    default:
        return SplashSocket::Answer::OTHER;
    }
}

SplashSocket::Sent sentOf(int error) {
    switch (error) {
    case EAGAIN:
    case ENOBUFS:
        return SplashSocket::Sent::BUSY;
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED:
    case ECONNRESET:
    case ENOTCONN:
    case EPIPE:
        return SplashSocket::Sent::NOBODY;
    case EMSGSIZE:
        return SplashSocket::Sent::TOO_LONG;
    default:
        return SplashSocket::Sent::FAILED;
    }
}

int makeSocket() {
    return socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

/// A datagram longer than the socket's buffer cannot be sent; the system limits what one may ask
/// for.
void makeRoom(int fd, std::size_t bytes) {
    int room = 0;
    socklen_t length = sizeof room;
    getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &room, &length);
    const auto wanted = static_cast<int>(bytes) + 1024;
    if (room < wanted)
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &wanted, sizeof wanted);
}

} // namespace

SplashSocket::SplashSocket(std::string path) : m_path(std::move(path)) {}

SplashSocket::Answer SplashSocket::probe() const {
    const Descriptor descriptor(makeSocket());
    const int error = descriptor.get() < 0 ? errno : Address(m_path).connect(descriptor.get());
    m_error = std::strerror(error);
    return answerOf(error);
}

SplashSocket::Sent SplashSocket::send(const std::string& message,
                                      std::chrono::milliseconds patience) const {
    const Descriptor descriptor(makeSocket());
    int error = descriptor.get() < 0 ? errno : Address(m_path).connect(descriptor.get());
    if (error == 0) {
        makeRoom(descriptor.get(), message.size());
        int flags = MSG_NOSIGNAL | MSG_DONTWAIT;
        if (patience.count() > 0) {
            const timeval limit{static_cast<time_t>(patience.count() / 1000),
                                static_cast<suseconds_t>(patience.count() % 1000 * 1000)};
            setsockopt(descriptor.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
            flags = MSG_NOSIGNAL;
        }
        const ssize_t sent = ::send(descriptor.get(), message.data(), message.size(), flags);
        if (sent >= 0)
            return Sent::YES;
        error = errno;
    }
    m_error = std::strerror(error);
    return sentOf(error);
}

} // namespace client
