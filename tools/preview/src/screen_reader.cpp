#include "screen_reader.h"

#include "screen.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace preview {
namespace {

const virtual_device::ScreenHeader& headerOf(const void* file) {
    return *static_cast<const virtual_device::ScreenHeader*>(file);
}

} // namespace

ScreenReader::ScreenReader(const std::string& path) {
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const bool sized = fd >= 0 && ftruncate(fd, off_t{virtual_device::SCREEN_FILE_BYTES}) == 0;
    // Waiting for a change of a word needs a mapping that others share.
    m_file = sized ? mmap(nullptr, virtual_device::SCREEN_FILE_BYTES, PROT_READ | PROT_WRITE,
                          MAP_SHARED, fd, 0)
                   : MAP_FAILED;
    const std::string why = std::strerror(errno);
    if (fd >= 0) {
        close(fd);
    }
    if (m_file == MAP_FAILED) {
        throw std::runtime_error(path + ": " + why);
    }
}

ScreenReader::~ScreenReader() {
    munmap(m_file, virtual_device::SCREEN_FILE_BYTES);
}

std::uint64_t ScreenReader::newest() const {
    return virtual_device::isScreen(m_file) ? headerOf(m_file).frame.load() : 0;
}

std::optional<Picture> ScreenReader::copy(std::uint64_t number) const {
    if (number == 0 || number > newest()) {
        return {};
    }
    Picture picture;
    picture.pixels.resize(std::size_t{PAGE_WIDTH} * PAGE_HEIGHT);
    virtual_device::ScreenFrame frame{};
    const std::size_t room = picture.pixels.size() * sizeof picture.pixels.front();
    if (!virtual_device::copyScreenFrame(m_file, number, frame, picture.pixels.data(), room)) {
        return {};
    }
    picture.width = static_cast<int>(frame.width);
    picture.height = static_cast<int>(frame.height);
    picture.pixels.resize(std::size_t{frame.width} * frame.height);
    return picture;
}

void ScreenReader::waitForChange(std::chrono::milliseconds limit) const {
    const auto& changes = headerOf(m_file).changes;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
    timespec time{};
    time.tv_sec = static_cast<time_t>(seconds.count());
    time.tv_nsec = static_cast<long>(std::chrono::nanoseconds(limit - seconds).count());
    syscall(SYS_futex, &changes, FUTEX_WAIT, changes.load(), &time, nullptr, 0);
}

} // namespace preview
