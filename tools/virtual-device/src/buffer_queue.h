/// \file
/// The frame buffers of the device and who holds each of them.
#pragma once

#include <cstdint>
#include <deque>
#include <linux/videodev2.h>
#include <memory>
#include <vector>

namespace virtual_device {

/// Memory of one set of buffers. Lives as long as the set or any mapping of it.
class BufferMemory {
public:
    explicit BufferMemory(std::uint64_t bytes);
    ~BufferMemory();

    BufferMemory(const BufferMemory&) = delete;
    BufferMemory& operator=(const BufferMemory&) = delete;

    bool valid() const { return m_start != nullptr; }
    int fd() const { return m_fd; }
    const unsigned char* start() const { return m_start; }

private:
    int m_fd;
    std::uint64_t m_bytes;
    unsigned char* m_start = nullptr;
};

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
    bool hasReleased() const { return !m_released.empty(); }
    /// The display takes over the oldest waiting buffer.
    std::uint32_t takeOver();
    /// The display lets go of a buffer.
    void release(std::uint32_t index);
    /// All buffers go back to the program.
    void cancel();

    /// The buffer that starts at a mapping offset; false where none does.
    bool findOffset(std::uint64_t offset, std::uint32_t& index) const;
    void countMapping(std::uint32_t index, bool added);
    const std::shared_ptr<BufferMemory>& memory() const { return m_memory; }
    const unsigned char* pixels(std::uint32_t index) const;
    std::uint32_t bufferBytes() const { return m_bufferBytes; }
    std::uint64_t mappingBytes() const { return m_stride; }

private:
    enum class State { HELD, WAITING, SHOWN, RELEASED };
    struct Buffer {
        State state = State::HELD;
        std::uint32_t bytesUsed = 0;
        std::uint32_t sequence = 0;
        std::uint32_t mappings = 0;
        timeval shown = {0, 0};
    };

    void describe(std::uint32_t index, v4l2_buffer& buffer) const;

    std::vector<Buffer> m_buffers;
    std::deque<std::uint32_t> m_waiting;
    std::deque<std::uint32_t> m_released;
    std::shared_ptr<BufferMemory> m_memory;
    std::uint32_t m_bufferBytes = 0;
    std::uint64_t m_stride = 0;
    std::uint32_t m_sequence = 0;
};

} // namespace virtual_device
