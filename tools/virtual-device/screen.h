/// \file
/// Layout of the screen file: what the virtual device shows, for programs that look at the screen.
///
/// The file holds one ScreenHeader, then SCREEN_SLOTS slots of SCREEN_SLOT_BYTES each. A slot is
/// one ScreenSlot and, SCREEN_PIXELS_OFFSET bytes behind the slot's start, the rows of the picture
/// without padding. Frame n lies in slot n % SCREEN_SLOTS. All fields have fixed widths and stand
/// at the same offsets on every machine; the byte order is the machine's own.
///
/// One process writes at a time; any number may read, each with a mapping of its own.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace virtual_device {

constexpr std::uint32_t SCREEN_MAGIC = 0x4e435342; ///< the bytes "BSCN" on a little-endian machine
constexpr std::uint32_t SCREEN_VERSION = 1;
constexpr std::uint32_t SCREEN_SLOTS = 8;
constexpr std::uint32_t SCREEN_MAX_SIDE = 1024; ///< widest and highest picture, in pixels
constexpr std::uint32_t SCREEN_HEADER_BYTES = 4096;
constexpr std::uint32_t SCREEN_PIXELS_OFFSET = 4096;
constexpr std::uint32_t SCREEN_SLOT_BYTES =
    SCREEN_PIXELS_OFFSET + SCREEN_MAX_SIDE * SCREEN_MAX_SIDE * 2;
constexpr std::uint32_t SCREEN_FILE_BYTES = SCREEN_HEADER_BYTES + SCREEN_SLOTS * SCREEN_SLOT_BYTES;

/// First bytes of the file. The magic is written last: before it is there, there is no screen yet.
struct ScreenHeader {
    std::atomic<std::uint32_t> magic;
    std::uint32_t version;
    std::uint32_t headerBytes;
    std::uint32_t slotBytes;
    std::uint32_t slots;
    std::uint32_t pixelsOffset;
    std::atomic<std::uint32_t> streaming; ///< 1 while the device streams, 0 while it is off
    std::atomic<std::uint32_t>
        changes; ///< grows with every frame and every on or off; a shared futex
    std::atomic<std::uint64_t> frame;   ///< number of the newest frame, from 1; 0 before the first
    std::atomic<std::uint32_t> streams; ///< how often the device was switched on
    std::atomic<std::uint32_t> pid;     ///< process that opened the device last
    std::uint64_t switchedNs;           ///< CLOCK_MONOTONIC time of the last on or off
};

/// Head of one slot. While `sequence` is odd the slot is being written.
struct ScreenSlot {
    std::atomic<std::uint32_t> sequence;
    std::uint32_t buffer; ///< index of the frame buffer that was shown
    std::uint64_t frame;  ///< number of the frame, or 0 for a slot never used
    std::uint64_t timeNs; ///< CLOCK_MONOTONIC time at which the display took the buffer over
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t pixelFormat; ///< V4L2 four-character code
    std::uint32_t rowBytes;    ///< bytes from one row to the next in the slot
    std::uint32_t stream;      ///< value of ScreenHeader::streams when the frame was shown
    std::uint32_t reserved;
};

static_assert(sizeof(ScreenHeader) == 56 && offsetof(ScreenHeader, frame) == 32);
static_assert(sizeof(ScreenSlot) == 48 && offsetof(ScreenSlot, timeNs) == 16);

/// What is known of one copied frame.
struct ScreenFrame {
    std::uint64_t frame;
    std::uint64_t timeNs;
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t rowBytes;
    std::uint32_t buffer;
    std::uint32_t stream;
};

/// True where `file`, a mapping of SCREEN_FILE_BYTES, holds a screen of this layout.
inline bool isScreen(const void* file) {
    const auto* header = static_cast<const ScreenHeader*>(file);
    return header->magic.load(std::memory_order_acquire) == SCREEN_MAGIC &&
           header->version == SCREEN_VERSION;
}

/// Copies frame `number` whole into `pixels`, which has room for `room` bytes. False where the slot
/// holds another frame by now, is being written, or does not fit; never a mix of two frames.
inline bool copyScreenFrame(const void* file, std::uint64_t number, ScreenFrame& frame,
                            void* pixels, std::size_t room) {
    const auto* start = static_cast<const unsigned char*>(file) + SCREEN_HEADER_BYTES +
                        (number % SCREEN_SLOTS) * SCREEN_SLOT_BYTES;
    const auto* slot = reinterpret_cast<const ScreenSlot*>(start);
    const std::uint32_t before = slot->sequence.load(std::memory_order_acquire);
    if (number == 0 || before % 2 != 0 || slot->frame != number) {
        return false;
    }
    frame = {slot->frame,    slot->timeNs, slot->width, slot->height,
             slot->rowBytes, slot->buffer, slot->stream};
    const std::uint64_t bytes = std::uint64_t(frame.rowBytes) * frame.height;
    if (bytes > SCREEN_SLOT_BYTES - SCREEN_PIXELS_OFFSET || bytes > room) {
        return false;
    }
    std::memcpy(pixels, start + SCREEN_PIXELS_OFFSET, static_cast<std::size_t>(bytes));
    __sync_synchronize(); // the standard's fence, which ThreadSanitizer builds refuse
    return slot->sequence.load(std::memory_order_relaxed) == before;
}

} // namespace virtual_device
