#include "buffer_queue.h"

#include "real.h"

#include <cerrno>

namespace virtual_device {

bool BufferQueue::makeMemory(std::uint64_t bytes) {
    m_fd = keepOwnDescriptor(memfd_create("virtual-device", MFD_CLOEXEC));
    if (m_fd < 0 || ftruncate64(m_fd, off64_t(bytes)) != 0) {
        return false;
    }
    void* start = real().mmap(nullptr, std::size_t(bytes), PROT_READ, MAP_SHARED, m_fd, 0);
    if (start == MAP_FAILED) {
        return false;
    }
    m_start = static_cast<unsigned char*>(start);
    return true;
}

void BufferQueue::freeMemory() {
    if (m_start != nullptr) {
        real().munmap(m_start, std::size_t(m_stride * count()));
        m_start = nullptr;
    }
    if (m_fd >= 0) {
        real().close(m_fd);
        m_fd = -1;
    }
}

int BufferQueue::allocate(std::uint32_t count, std::uint32_t bytes) {
    cancel();
    freeMemory();
    m_buffers.clear();
    if (count == 0) {
        return 0;
    }
    const auto page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    m_bufferBytes = bytes;
    m_stride = (bytes + page - 1) / page * page;
    if (!makeMemory(m_stride * count)) {
        freeMemory();
        return ENOMEM;
    }
    m_buffers.resize(count);
    return 0;
}

void BufferQueue::describe(std::uint32_t index, v4l2_buffer& buffer) const {
    const Buffer& from = m_buffers[index];
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffer.bytesused = from.bytesUsed;
    buffer.flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
    if (from.state == State::WAITING || from.state == State::SHOWN) {
        buffer.flags |= V4L2_BUF_FLAG_QUEUED;
    }
    if (from.state == State::RELEASED) {
        buffer.flags |= V4L2_BUF_FLAG_DONE;
    }
    buffer.field = V4L2_FIELD_NONE;
    buffer.timestamp = from.shown;
    buffer.timecode = v4l2_timecode{};
    buffer.sequence = from.sequence;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.m.offset = static_cast<std::uint32_t>(index * m_stride);
    buffer.length = m_bufferBytes;
    buffer.reserved2 = 0;
    buffer.request_fd = 0;
}

int BufferQueue::query(v4l2_buffer& buffer) const {
    if (buffer.index >= count()) {
        return EINVAL;
    }
    describe(buffer.index, buffer);
    return 0;
}

int BufferQueue::queue(v4l2_buffer& buffer) {
    if (buffer.index >= count() || buffer.memory != V4L2_MEMORY_MMAP) {
        return EINVAL;
    }
    Buffer& mine = m_buffers[buffer.index];
    if (mine.state != State::HELD || buffer.bytesused > m_bufferBytes ||
        buffer.field == V4L2_FIELD_ALTERNATE) {
        return EINVAL;
    }
    mine.bytesUsed = buffer.bytesused != 0 ? buffer.bytesused : m_bufferBytes;
    mine.state = State::WAITING;
    m_waiting.push_back(buffer.index);
    describe(buffer.index, buffer);
    return 0;
}

bool BufferQueue::dequeue(v4l2_buffer& buffer) {
    if (m_released.empty()) {
        return false;
    }
    const std::uint32_t index = m_released.front();
    m_released.pop_front();
    m_buffers[index].state = State::HELD;
    describe(index, buffer);
    return true;
}

std::uint32_t BufferQueue::takeOver() {
    const std::uint32_t index = m_waiting.front();
    m_waiting.pop_front();
    Buffer& buffer = m_buffers[index];
    const std::int64_t now = monotonicNs();
    buffer.state = State::SHOWN;
    buffer.sequence = m_sequence++;
    buffer.shown = {static_cast<time_t>(now / 1000000000),
                    static_cast<suseconds_t>(now % 1000000000 / 1000)};
    return index;
}

void BufferQueue::release(std::uint32_t index) {
    m_buffers[index].state = State::RELEASED;
    m_released.push_back(index);
}

void BufferQueue::cancel() {
    for (Buffer& buffer : m_buffers) {
        buffer.state = State::HELD;
    }
    m_waiting.clear();
    m_released.clear();
    m_sequence = 0;
}

bool BufferQueue::isBuffer(std::uint64_t offset, std::size_t bytes) const {
    return count() > 0 && offset % m_stride == 0 && offset / m_stride < count() &&
           bytes <= m_stride;
}

const unsigned char* BufferQueue::pixels(std::uint32_t index) const {
    return m_start + index * m_stride;
}

} // namespace virtual_device
