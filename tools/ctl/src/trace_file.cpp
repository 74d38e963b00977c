#include "trace_file.h"

#include "lock_holder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace ctl {
namespace {

constexpr off_t LARGEST = 1 << 20;
constexpr mode_t FILE_MODE = 0644;
constexpr std::chrono::seconds LOCK_PATIENCE{5};
constexpr std::chrono::milliseconds TRY_AGAIN{20};

[[noreturn]] void fail(const std::string& path, const std::string& why) {
    throw std::runtime_error(path + ": " + why);
}

/// The open file, locked against another bootlumectl.
class File {
public:
    explicit File(const std::string& path) : m_path(path), m_fd(openOrCreate()) {
        try {
            checkKind();
            lock();
        } catch (...) {
            close(m_fd);
            throw;
        }
    }
    ~File() { close(m_fd); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool created() const { return m_created; }
    std::string read() const;
    void rewrite(const std::string& before, const std::string& after) const;

private:
    int openOrCreate();
    void checkKind() const;
    void lock() const;

    const std::string& m_path;
    bool m_created = false;
    int m_fd;
};

/// Follows no link: whoever owns the folder could lead root to any file by it.
int File::openOrCreate() {
    constexpr int FLAGS = O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW;
    int fd = open(m_path.c_str(), FLAGS);
    if (fd < 0 && errno == ENOENT) {
        fd = open(m_path.c_str(), FLAGS | O_CREAT | O_EXCL, FILE_MODE);
        m_created = fd >= 0;
        if (fd < 0 && errno == EEXIST) { // another was faster
            fd = open(m_path.c_str(), FLAGS);
        }
    }
    if (fd >= 0) {
        return fd;
    }
    switch (errno) {
    case ELOOP:
    case EEXIST: // a link that leads nowhere
        fail(m_path, "a link, which is not followed; name the file itself with --trace-config");
    case ENOENT:
        fail(m_path, "its folder is not there; make it first, with mkdir -p");
    case EACCES:
    case EPERM:
        fail(m_path, "permission denied; try it as root");
    default:
        fail(m_path, std::strerror(errno));
    }
}

void File::checkKind() const {
    struct stat about {};
    if (fstat(m_fd, &about) != 0) {
        fail(m_path, std::strerror(errno));
    }
    if (!S_ISREG(about.st_mode)) {
        fail(m_path, "no regular file; it is left as it is");
    }
    if (about.st_nlink > 1) {
        fail(m_path,
             "has another name elsewhere, which may be anybody's file; it is left as it is");
    }
}

/// Whoever may read a file may keep it locked.
void File::lock() const {
    const auto end = std::chrono::steady_clock::now() + LOCK_PATIENCE;
    while (flock(m_fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            fail(m_path, std::strerror(errno));
        }
        if (std::chrono::steady_clock::now() >= end) {
            struct stat about {};
            const std::string holders =
                fstat(m_fd, &about) == 0 ? lockHolders(about) : std::string();
            fail(m_path, "another program keeps it locked: " +
                             (holders.empty() ? "any that may read it can" : holders) +
                             "; end it and try again");
        }
        std::this_thread::sleep_for(TRY_AGAIN);
    }
}

std::string File::read() const {
    struct stat about {};
    if (fstat(m_fd, &about) != 0) {
        fail(m_path, std::strerror(errno));
    }
    if (about.st_size > LARGEST) {
        fail(m_path, "too large for a trace configuration; it is left as it is");
    }
    std::string text(static_cast<std::size_t>(about.st_size), '\0');
    const ssize_t length = pread(m_fd, text.data(), text.size(), 0);
    if (length < 0) {
        fail(m_path, std::strerror(errno));
    }
    text.resize(static_cast<std::size_t>(length));
    if (text.find('\0') != std::string::npos) {
        fail(m_path, "holds zero bytes, so it is no trace configuration; it is left as it is");
    }
    return text;
}

/// Writes from the first difference on. Where the text gets shorter, the rest is blanked with empty
/// lines in the same write and cut off afterwards: no moment shows a piece of an old line.
void File::rewrite(const std::string& before, const std::string& after) const {
    std::size_t same = 0;
    while (same + 1 < after.size() && same < before.size() && before[same] == after[same]) {
        ++same;
    }
    std::string tail = after.substr(same);
    if (after.size() < before.size()) {
        tail.append(before.size() - after.size(), '\n');
    }
    const ssize_t written = pwrite(m_fd, tail.data(), tail.size(), static_cast<off_t>(same));
    if (written != static_cast<ssize_t>(tail.size())) {
        const std::string why = written < 0 ? std::strerror(errno) : "no room for the whole line";
        if (written >= 0 && after.size() > before.size()) {
            const std::string old = before.substr(same);
            if (pwrite(m_fd, old.data(), old.size(), static_cast<off_t>(same)) < 0 ||
                ftruncate(m_fd, static_cast<off_t>(before.size())) != 0) {
                fail(m_path, why + "; it could not be put back");
            }
        }
        fail(m_path, why);
    }
    if (after.size() < before.size() && ftruncate(m_fd, static_cast<off_t>(after.size())) != 0) {
        fail(m_path, std::strerror(errno));
    }
    fsync(m_fd);
}

struct Line {
    std::size_t start;
    std::size_t end; ///< behind the text, before the newline
};

/// The splash's first entry, or an empty place at the end.
Line findEntry(const std::string& text) {
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        if (isSplashEntry(text.substr(start, end - start))) {
            return {start, end};
        }
        start = end + 1;
    }
    return {text.size(), text.size()};
}

std::string entryAt(const std::string& text, const Line& place) {
    return text.substr(place.start, place.end - place.start);
}

std::string withEntry(const std::string& text, const Line& place, const std::string& line) {
    std::string after = text;
    if (place.start == text.size()) {
        const bool cut = !text.empty() && text.back() != '\n';
        after += (cut ? "\n" : "") + line + "\n";
    } else {
        after.replace(place.start, place.end - place.start, line);
    }
    return after;
}

} // namespace

TraceChange setTraceEntry(const std::string& path, const TraceWish& wish) {
    const File file(path);
    const std::string text = file.read();
    const Line place = findEntry(text);
    const std::string before = entryAt(text, place);
    const std::string line = traceLine(wish, before);
    file.rewrite(text, withEntry(text, place, line));
    return {line, before, file.created()};
}

bool putTraceEntryBack(const std::string& path, const TraceChange& change) {
    const File file(path);
    const std::string text = file.read();
    const Line place = findEntry(text);
    if (entryAt(text, place) != change.line) {
        return false;
    }
    file.rewrite(text, withEntry(text, place, change.before.empty() ? NO_ENTRY : change.before));
    return true;
}

} // namespace ctl
