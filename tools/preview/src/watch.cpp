#include "watch.h"

#include "interruption.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace preview {
namespace {

namespace fs = std::filesystem;

/// The folder, not the file: an editor may put a new one in its place.
class FolderWatch {
public:
    explicit FolderWatch(const fs::path& folder) : m_fd(inotify_init1(IN_CLOEXEC)) {
        constexpr std::uint32_t SAVED = IN_CLOSE_WRITE | IN_MOVED_TO;
        if (m_fd < 0 || inotify_add_watch(m_fd, folder.c_str(), SAVED) < 0) {
            const std::string why = std::strerror(errno);
            close(m_fd);
            throw std::runtime_error(folder.string() + ": cannot be watched: " + why);
        }
    }
    ~FolderWatch() { close(m_fd); }
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /// Waits until the file has been saved, and takes all that happened meanwhile for one time.
    void waitFor(const std::string& name) const {
        for (bool saved = false; !saved || wait(0);) {
            saved = (wait(-1) && take(name)) || saved;
        }
    }

private:
    /// Ends, as a signal would, once nobody reads the reports any more.
    bool wait(int milliseconds) const {
        pollfd ready[2] = {{m_fd, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
        poll(ready, 2, milliseconds);
        throwIfInterrupted();
        if ((ready[1].revents & POLLERR) != 0) {
            throw Interrupted(SIGPIPE);
        }
        return ready[0].revents != 0;
    }

    /// Whether the file is among those that the next events tell of.
    bool take(const std::string& name) const {
        alignas(inotify_event) std::array<char, 4096> events{};
        const ssize_t size = read(m_fd, events.data(), events.size());
        bool found = false;
        for (ssize_t at = 0; at < size;) {
            inotify_event event{};
            std::memcpy(&event, events.data() + at, sizeof event);
            found = found || (event.len > 0 && name == events.data() + at + sizeof event);
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
        return found;
    }

    int m_fd;
};

} // namespace

void watch(const std::string& path, const std::function<void()>& look) {
    const fs::path file = fs::absolute(path);
    const FolderWatch folder(file.parent_path());
    for (;;) {
        look();
        folder.waitFor(file.filename().string());
    }
}

} // namespace preview
