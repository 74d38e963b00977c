/// \file
/// The overlay: a V4L2 output device with memory-mapped buffers, as drivers on the kernel's buffer
/// framework behave towards a program that opens it, maps its buffers and flips them.
#pragma once

#include "buffer_queue.h"
#include "display.h"
#include "format.h"
#include "screen_file.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

namespace virtual_device {

/// Safe from any thread. No lock is held while a call waits. Failures are errno values.
///
/// An opening is one descriptor. The one that asked for the buffers owns them and the stream, until
/// it gives them back or is closed; others get EBUSY.
class Device {
public:
    Device();

    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /// The descriptor is closed.
    void endOpening(int fd);

    /// One ioctl with its argument.
    int ioctl(int fd, std::uint32_t request, void* argument);

    /// Maps a buffer at the offset that VIDIOC_QUERYBUF gave out.
    int map(void* hint, std::size_t bytes, int protection, int flags, std::uint64_t offset,
            void*& start);
    /// True where a mapping of the device starts there. Takes no lock: a sanitizer unmaps its own
    /// memory with a lock held that a call on the device may be waiting for.
    bool isMapped(const void* start) const;
    int unmap(void* start, std::size_t bytes);

    /// The process ends with the device open: the display goes off.
    void abandon();

private:
    static constexpr int NOBODY = -1;
    static constexpr std::size_t MOST_MAPPINGS = 64;

    int setFormat(v4l2_format& format);
    int requestBuffers(int fd, v4l2_requestbuffers& request);
    int queueBuffer(int fd, v4l2_buffer& buffer);
    int dequeueBuffer(int fd, v4l2_buffer& buffer);
    int tryDequeue(int fd, v4l2_buffer& buffer);
    int streamOn(int fd, std::uint32_t type);
    int streamOff(int fd, std::uint32_t type);
    void stopStream(std::unique_lock<std::mutex>& lock);
    bool ownedByOther(int fd) const { return m_owner != NOBODY && m_owner != fd; }

    std::mutex m_control; ///< calls that switch the stream or the buffers; taken before m_mutex
    std::mutex m_mutex;   ///< everything below
    ScreenFile m_screen;
    BufferQueue m_queue;
    Display m_display;
    v4l2_pix_format m_format;
    int m_owner = NOBODY;
    bool m_streaming = false;
    std::atomic<std::uint32_t> m_released{
        0}; ///< changes when a waiting VIDIOC_DQBUF must look again
    /// Where the mappings start, 0 for a free place; changed under m_mutex, asked without it.
    std::array<std::atomic<const void*>, MOST_MAPPINGS> m_mappings{};
};

/// The device of this process, made at its first use.
Device& device();
/// Null where it was never used.
Device* deviceIfUsed();
/// The child of a fork starts without a device; that of its parent goes on undisturbed.
void forgetDevice();

} // namespace virtual_device
