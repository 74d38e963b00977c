/// \file
/// The overlay: a V4L2 output device with memory-mapped buffers, as drivers on the kernel's buffer
/// framework behave.
#pragma once

#include "buffer_queue.h"
#include "display.h"
#include "format.h"
#include "mapping_table.h"
#include "screen_file.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

namespace virtual_device {

constexpr unsigned MOST_HANDLES = 64;

/// Safe from any thread. No lock is held while a call waits. Failures are errno values.
///
/// A handle is one opening of the device: it has descriptors (the first and its duplicates) and
/// mappings, and ends with the last of both, as a file of the kernel does. The handle that asked
/// for the buffers owns them and the stream; others get EBUSY.
class Device {
public:
    Device();

    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /// A new handle with one descriptor, or -1 where there are too many.
    int open();
    void addDescriptor(unsigned handle);
    void dropDescriptor(unsigned handle);

    /// One ioctl with its argument. `nonblocking` makes VIDIOC_DQBUF return EAGAIN at once.
    int ioctl(unsigned handle, std::uint32_t request, void* argument, bool nonblocking);

    /// Maps a buffer at the offset that VIDIOC_QUERYBUF gave out.
    int map(unsigned handle, void* hint, std::size_t bytes, int protection, int flags,
            std::uint64_t offset, void*& start);
    /// True where the range touches a mapping of the device.
    bool isMapped(const void* start, std::size_t bytes) const;
    int unmap(void* start, std::size_t bytes);

    /// The process ends with the device open: the display goes off.
    void abandon();

private:
    struct Handle {
        unsigned descriptors = 0;
        unsigned mappings = 0;
        bool used = false;
    };
    struct Mapping {
        std::uintptr_t start;
        std::uintptr_t end;
        unsigned handle;
        std::uint32_t buffer;
        std::shared_ptr<BufferMemory> memory;
    };
    static constexpr int NOBODY = -1;

    int setFormat(v4l2_format& format);
    int requestBuffers(unsigned handle, v4l2_requestbuffers& request);
    int queueBuffer(unsigned handle, v4l2_buffer& buffer);
    int dequeueBuffer(unsigned handle, v4l2_buffer& buffer, bool nonblocking);
    int tryDequeue(unsigned handle, v4l2_buffer& buffer);
    int streamOn(unsigned handle, std::uint32_t type);
    int streamOff(unsigned handle, std::uint32_t type);
    void stopStream(std::unique_lock<std::mutex>& lock);
    bool ownedByOther(unsigned handle) const { return m_owner != NOBODY && m_owner != int(handle); }
    void endIfUnused(unsigned handle, std::unique_lock<std::mutex>& lock);
    bool setMappings(const std::vector<Mapping>& mappings);
    void count(const Mapping& mapping, bool added);

    std::mutex m_control; ///< calls that switch the stream or the buffers; taken before m_mutex
    std::mutex m_mutex;   ///< everything below
    ScreenFile m_screen;
    BufferQueue m_queue;
    Display m_display;
    v4l2_pix_format m_format;
    std::array<Handle, MOST_HANDLES> m_handles;
    std::vector<Mapping> m_mappings;
    MappingTable m_table; ///< the ranges of m_mappings; changed under m_mutex, asked without it
    int m_owner = NOBODY;
    bool m_streaming = false;
    unsigned m_waiters = 0; ///< calls in VIDIOC_DQBUF
    std::atomic<std::uint32_t> m_released{
        0}; ///< changes when a waiting VIDIOC_DQBUF must look again
};

/// The device of this process, made at its first use.
Device& device();
/// Null where it was never used.
Device* deviceIfUsed();
/// The child of a fork starts without a device; that of its parent goes on undisturbed.
void forgetDevice();

} // namespace virtual_device
