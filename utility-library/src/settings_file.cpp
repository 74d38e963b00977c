#include "settings_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace brem {

namespace {

std::int64_t sizeOf(int descriptor) {
    struct stat found {};
    if (fstat(descriptor, &found) == 0) {
        return S_ISREG(found.st_mode) ? found.st_size : 0;
    }
    // A filter may forbid fstat. A pipe or an endless device has no end to seek to.
    return lseek(descriptor, 0, SEEK_END);
}

} // namespace

SettingsFile::SettingsFile(const char* path)
    : m_descriptor(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
    if (m_descriptor >= 0) {
        m_size = sizeOf(m_descriptor);
    }
}

SettingsFile::~SettingsFile() {
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
}

std::size_t SettingsFile::read(char* bytes, std::size_t size, std::int64_t place) const {
    const std::int64_t end = std::min(m_size, place + static_cast<std::int64_t>(size));
    std::size_t done = 0;
    for (std::int64_t next = place; next < end;) {
        const ssize_t count =
            pread(m_descriptor, bytes + done, static_cast<std::size_t>(end - next), next);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
            next += count;
        } else if (count == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

} // namespace brem
