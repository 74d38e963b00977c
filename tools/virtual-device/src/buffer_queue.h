/// \file
/// The frame buffers of the device and who holds each of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <linux/videodev2.h>
#include <vector>

namespace virtual_device {

/// Not for several threads at once: the device's lock guards it. Failures are errno values.
class BufferQueue {
public:
    /// Frees the set that there is and makes a new one; 0 buffers only free.
    int allocate(std::uint32_t count, std::uint32_t bytes);
    std::uint32_t count() const { return std::uint32_t(m_buffers.size()); }

    int query(v4l2_buffer& buffer) const;
    /// The program hands the buffer over.
    int queue(v4l2_buffer& buffer);
    /// The program takes back the oldest buffer that was released; false where there is none.
    bool dequeue(v4l2_buffer& buffer);

    bool hasWaiting() const { return !m_waiting.empty(); }
    /// The display takes over the oldest waiting buffer.
    std::uint32_t takeOver();
    /// The display lets go of a buffer.
    void release(std::uint32_t index);
    /// All buffers go back to the program.
    void cancel();

    /// True where a buffer starts at a mapping offset and has room for so many bytes.
    bool isBuffer(std::uint64_t offset, std::size_t bytes) const;
    /// The file that the buffers lie in; their mappings outlive them.
    int memory() const { return m_fd; }
    const unsigned char* pixels(std::uint32_t index) const;
    std::uint32_t bufferBytes() const { return m_bufferBytes; }

private:
    enum class State { HELD, WAITING, SHOWN, RELEASED };
    struct Buffer {
        State state = State::HELD;
        std::uint32_t bytesUsed = 0;
        std::uint32_t sequence = 0;
        timeval shown = {0, 0};
    };

    bool makeMemory(std::uint64_t bytes);
    void freeMemory();
    void describe(std::uint32_t index, v4l2_buffer& buffer) const;

    std::vector<Buffer> m_buffers;
    std::deque<std::uint32_t> m_waiting;
    std::deque<std::uint32_t> m_released;
    int m_fd = -1;
    unsigned char* m_start = nullptr;
    std::uint32_t m_bufferBytes = 0;
    std::uint64_t m_stride = 0;
    std::uint32_t m_sequence = 0;
};

} // namespace virtual_device
