#include "screen_file.h"

#include "../screen.h"
#include "real.h"
#include "settings.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/file.h>

namespace virtual_device {
namespace {

constexpr const char* VARIABLE = "VIRTUAL_DEVICE_SCREEN";
constexpr std::uint32_t BYTES_PER_PIXEL = 2;

int openFile() {
    const int fd = real().open(settings().screen, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0 || ftruncate(fd, off_t(SCREEN_FILE_BYTES)) != 0) {
        refuse(VARIABLE, settings().screen, strerror(errno));
    }
    return keepOwnDescriptor(fd);
}

void* mapFile(int fd) {
    void* memory =
        real().mmap(nullptr, SCREEN_FILE_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) {
        refuse(VARIABLE, settings().screen, strerror(errno));
    }
    return memory;
}

/// Copies the visible part of each row; what the buffer does not hold is black.
void copyRows(unsigned char* target, const Picture& picture) {
    const std::uint64_t rowBytes = std::uint64_t(picture.width) * BYTES_PER_PIXEL;
    for (std::uint64_t y = 0; y < picture.height; ++y) {
        const std::uint64_t start = y * picture.bytesPerLine;
        const std::uint64_t there =
            start < picture.bytes ? std::min(rowBytes, picture.bytes - start) : 0;
        memcpy(target + y * rowBytes, picture.pixels + start, std::size_t(there));
        memset(target + y * rowBytes + there, 0, std::size_t(rowBytes - there));
    }
}

} // namespace

ScreenFile::ScreenFile()
    : m_fd(openFile()),
      m_file(static_cast<unsigned char*>(mapFile(m_fd))),
      m_header(reinterpret_cast<ScreenHeader*>(m_file)) {
    if (!isScreen(m_file)) {
        memset(m_file, 0, SCREEN_HEADER_BYTES);
        m_header->version = SCREEN_VERSION;
        m_header->headerBytes = SCREEN_HEADER_BYTES;
        m_header->slotBytes = SCREEN_SLOT_BYTES;
        m_header->slots = SCREEN_SLOTS;
        m_header->pixelsOffset = SCREEN_PIXELS_OFFSET;
        m_header->magic.store(SCREEN_MAGIC, std::memory_order_release);
    }
}

bool ScreenFile::claim() {
    return flock(m_fd, LOCK_EX | LOCK_NB) == 0;
}

void ScreenFile::unclaim() {
    flock(m_fd, LOCK_UN);
}

void ScreenFile::switchOn() {
    m_header->pid.store(static_cast<std::uint32_t>(getpid()));
    m_header->switchedNs = static_cast<std::uint64_t>(monotonicNs());
    m_header->streams.fetch_add(1);
    m_header->streaming.store(1, std::memory_order_release);
    announce();
}

void ScreenFile::switchOff() {
    m_header->switchedNs = static_cast<std::uint64_t>(monotonicNs());
    m_header->streaming.store(0, std::memory_order_release);
    announce();
}

std::uint64_t ScreenFile::show(const Picture& picture) {
    const std::uint64_t number = m_header->frame.load(std::memory_order_relaxed) + 1;
    unsigned char* start =
        m_file + SCREEN_HEADER_BYTES + (number % SCREEN_SLOTS) * SCREEN_SLOT_BYTES;
    auto* slot = reinterpret_cast<ScreenSlot*>(start);
    // Odd while it is written; a slot that a killed writer left odd is taken over.
    const std::uint32_t writing = slot->sequence.load(std::memory_order_relaxed) | 1U;
    slot->sequence.store(writing, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    slot->frame = number;
    slot->timeNs = static_cast<std::uint64_t>(monotonicNs());
    slot->width = picture.width;
    slot->height = picture.height;
    slot->pixelFormat = picture.pixelFormat;
    slot->rowBytes = picture.width * BYTES_PER_PIXEL;
    slot->buffer = picture.buffer;
    slot->stream = m_header->streams.load(std::memory_order_relaxed);
    copyRows(start + SCREEN_PIXELS_OFFSET, picture);
    slot->sequence.store(writing + 1, std::memory_order_release);
    m_header->frame.store(number, std::memory_order_release);
    announce();
    return number;
}

void ScreenFile::announce() {
    m_header->changes.fetch_add(1, std::memory_order_release);
    wakeAll(&m_header->changes, true);
}

} // namespace virtual_device
