#include "trace_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <stdexcept>

namespace ctl {
namespace {

constexpr off_t LARGEST = 1 << 20;
constexpr mode_t FILE_MODE = 0644;

[[noreturn]] void fail(const std::string& path, const std::string& why) {
    throw std::runtime_error(path + ": " + why);
}

/// The open, locked file; another bootlumectl waits for the lock.
class File {
public:
    explicit File(const std::string& path) : m_path(path) {
        struct stat about {};
        m_created = stat(path.c_str(), &about) != 0 && errno == ENOENT;
        m_fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, FILE_MODE);
        if (m_fd < 0)
            fail(path, std::strerror(errno));
        flock(m_fd, LOCK_EX);
    }
    ~File() { close(m_fd); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool created() const { return m_created; }
    std::string read() const;
    void rewrite(const std::string& before, const std::string& after) const;

private:
    const std::string& m_path;
    int m_fd = -1;
    bool m_created = false;
};

std::string File::read() const {
    struct stat about {};
    if (fstat(m_fd, &about) != 0)
        fail(m_path, std::strerror(errno));
    if (!S_ISREG(about.st_mode))
        fail(m_path, "no regular file; it is left as it is");
    if (about.st_size > LARGEST)
        fail(m_path, "too large for a trace configuration; it is left as it is");
    std::string text(static_cast<std::size_t>(about.st_size), '\0');
    const ssize_t length = pread(m_fd, text.data(), text.size(), 0);
    if (length < 0)
        fail(m_path, std::strerror(errno));
    text.resize(static_cast<std::size_t>(length));
    if (text.find('\0') != std::string::npos)
        fail(m_path, "holds zero bytes, so it is no trace configuration; it is left as it is");
    return text;
}

/// Writes from the first difference on. Where the text gets shorter, the rest is blanked with empty
/// lines in the same write and cut off afterwards: no moment shows a piece of an old line.
void File::rewrite(const std::string& before, const std::string& after) const {
    std::size_t same = 0;
    while (same + 1 < after.size() && same < before.size() && before[same] == after[same])
        ++same;
    std::string tail = after.substr(same);
    if (after.size() < before.size())
        tail.append(before.size() - after.size(), '\n');
    const ssize_t written = pwrite(m_fd, tail.data(), tail.size(), static_cast<off_t>(same));
    if (written != static_cast<ssize_t>(tail.size())) {
        const std::string why = written < 0 ? std::strerror(errno) : "no room for the whole line";
        if (written >= 0 && after.size() > before.size()) {
            const std::string old = before.substr(same);
            if (pwrite(m_fd, old.data(), old.size(), static_cast<off_t>(same)) < 0 ||
                ftruncate(m_fd, static_cast<off_t>(before.size())) != 0)
                fail(m_path, why + "; it could not be put back");
        }
        fail(m_path, why);
    }
    if (after.size() < before.size() && ftruncate(m_fd, static_cast<off_t>(after.size())) != 0)
        fail(m_path, std::strerror(errno));
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
        if (isSplashEntry(text.substr(start, end - start)))
            return {start, end};
        start = end + 1;
    }
    return {text.size(), text.size()};
}

} // namespace

TraceChange setTraceEntry(const std::string& path, const TraceWish& wish) {
    const File file(path);
    const std::string before = file.read();
    const Line place = findEntry(before);
    const std::string line = traceLine(wish, before.substr(place.start, place.end - place.start));
    std::string after = before;
    if (place.start == before.size()) {
        const bool cut = !before.empty() && before.back() != '\n';
        after += (cut ? "\n" : "") + line + "\n";
    } else {
        after.replace(place.start, place.end - place.start, line);
    }
    file.rewrite(before, after);
    return {line, file.created()};
}

} // namespace ctl
