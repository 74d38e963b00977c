#include "splash_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

namespace client {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds TRY_AGAIN{10};

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

/// A name for a path that fits a socket's address: one that is too long leads through its folder.
class ShortName {
public:
    explicit ShortName(const std::string& path) : m_folder(openFolder(path)), m_name(path) {
        if (m_folder.get() >= 0) {
            m_name = "/proc/self/fd/" + std::to_string(m_folder.get()) + "/" +
                     path.substr(path.rfind('/') + 1);
        }
    }
    const char* get() const { return m_name.c_str(); }

private:
    static int openFolder(const std::string& path) {
        const auto slash = path.rfind('/');
        if (path.size() < sizeof(sockaddr_un::sun_path) || slash == std::string::npos) {
            return -1;
        }
        return open(path.substr(0, slash).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    }

    Descriptor m_folder;
    std::string m_name;
};

} // namespace

SplashSocket::SplashSocket(std::string path) : m_path(std::move(path)) {}

bootlume_result SplashSocket::probe() const {
    const ShortName name(m_path);
    const Descriptor descriptor(bootlume_connect(name.get()));
    if (descriptor.get() < 0) {
        const int error = errno;
        m_error = std::strerror(error);
        return bootlume_result_of(error);
    }
    pollfd room{descriptor.get(), POLLOUT, 0};
    return poll(&room, 1, 0) == 0 ? BOOTLUME_BUSY : BOOTLUME_SENT;
}

bootlume_result SplashSocket::send(const std::string& message,
                                   std::chrono::milliseconds patience) const {
    const ShortName name(m_path);
    const char* const text = message.c_str();
    const Clock::time_point end = Clock::now() + patience;
    for (;;) {
        const bootlume_result result = bootlume_send_to(name.get(), &text, 1);
        m_error = std::strerror(errno);
        if (result != BOOTLUME_BUSY || Clock::now() >= end) {
            return result;
        }
        std::this_thread::sleep_for(TRY_AGAIN);
    }
}

} // namespace client
