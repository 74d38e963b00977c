#include "file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace preview {
namespace {

/// False, with errno, where not all of it could be written.
bool writeAll(int fd, const std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t written = write(fd, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno != EINTR) {
            return false;
        }
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
    return true;
}

/// A device or a pipe is written into; what is a file, or is to be one, is written beside its place
/// and renamed into it, so that whoever looks finds the one or the other whole.
bool isReplaceable(const std::string& path) {
    struct stat found {};
    return lstat(path.c_str(), &found) != 0 || S_ISREG(found.st_mode);
}

bool writeTo(const std::string& path, const std::string& bytes) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) {
        return false;
    }
    const bool written = writeAll(fd, bytes);
    const int reason = errno;
    const bool closed = close(fd) == 0;
    errno = written ? errno : reason;
    return written && closed;
}

bool replace(const std::string& path, const std::string& bytes) {
    const std::string beside = path + ".new";
    if (writeTo(beside, bytes) && std::rename(beside.c_str(), path.c_str()) == 0) {
        return true;
    }
    const int reason = errno;
    unlink(beside.c_str());
    errno = reason;
    return false;
}

} // namespace

void writeFile(const std::string& bytes, const std::string& path) {
    const bool written = path == "-"           ? writeAll(STDOUT_FILENO, bytes)
                         : isReplaceable(path) ? replace(path, bytes)
                                               : writeTo(path, bytes);
    if (!written) {
        throw std::runtime_error((path == "-" ? "standard output" : path) + ": " +
                                 std::strerror(errno));
    }
}

} // namespace preview
