#include "display/surface.h"

#include "tracing.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace paint {

namespace {

constexpr std::uint32_t BUFFER_COUNT = 2;
constexpr std::uint32_t PAGE_BYTES = Surface::WIDTH * Surface::HEIGHT * Surface::BYTES_PER_PIXEL;
constexpr int WHITE_BYTE = 0xFF; // two of them are white in RGB565

} // namespace

Surface::Surface() {
    openDevice();
    queryCapabilities();
    setFormat();
    if (allocateBuffers() != 0) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't allocate video buffers.");
        std::exit(-1);
    }
    showFirstBuffer();
}

Surface::~Surface() {
    if (!m_closed) {
        close();
    }
}

void Surface::openDevice() {
    m_fd = open(m_device, O_RDWR);
    if (m_fd < 0) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't open v4l2 overlay device.");
        std::exit(-1);
    }
}

void Surface::queryCapabilities() const {
    v4l2_capability vid_caps{};
    if (ioctl(m_fd, VIDIOC_QUERYCAP, &vid_caps) < 0) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't query caps from overlay device.");
    }
    TRACE(Trace::LEVEL_DEBUG, "Device Caps" << TRACE_VALUE(vid_caps.capabilities));
}

void Surface::setFormat() const {
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    if (ioctl(m_fd, VIDIOC_G_FMT, &format) < 0) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't get format from overlay device.");
    }
    format.fmt.pix.width = WIDTH;
    format.fmt.pix.height = HEIGHT;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_RGB565;
    format.fmt.pix.field = V4L2_FIELD_ANY;
    format.fmt.pix.colorspace = V4L2_COLORSPACE_SRGB;
    if (ioctl(m_fd, VIDIOC_S_FMT, &format) < 0) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't set the video FMT.");
        std::exit(-1);
    }
}

int Surface::allocateBuffers() {
    v4l2_requestbuffers request{};
    request.count = BUFFER_COUNT;
    request.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    request.memory = V4L2_MEMORY_MMAP;
    if (ioctl(m_fd, VIDIOC_REQBUFS, &request) < 0) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't get request buffers.");
        return -1;
    }
    // Always the two that the flips need, whatever count the driver granted.
    for (std::uint32_t index = 0; index < BUFFER_COUNT; ++index) {
        if (allocateBuffer(index, request) != 0) {
            return -1;
        }
    }
    return 0;
}

int Surface::allocateBuffer(std::uint32_t index, const v4l2_requestbuffers& request) {
    v4l2_buffer vbuffer{};
    vbuffer.index = index;
    vbuffer.type = request.type;
    vbuffer.memory = V4L2_MEMORY_MMAP;
    if (ioctl(m_fd, VIDIOC_QUERYBUF, &vbuffer) < 0) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't query video buffers.");
        return -1;
    }
    TRACE(Trace::LEVEL_DEBUG, "Allocated buffer with length" << TRACE_VALUE(vbuffer.length));
    if (vbuffer.length < PAGE_BYTES) { // the page would be drawn past the mapping's end
        return -1;
    }
    void* const start = mmap(nullptr, vbuffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, m_fd,
                             static_cast<off_t>(vbuffer.m.offset));
    if (start == MAP_FAILED) {
        return -1;
    }
    std::memset(start, WHITE_BYTE, vbuffer.length);
    m_buffers.push_back({start, vbuffer.length});
    return 0;
}

void Surface::showFirstBuffer() {
    m_freeBuffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    m_freeBuffer.memory = V4L2_MEMORY_MMAP;
    m_freeBuffer.index = 1;
    if (ioctl(m_fd, VIDIOC_QBUF, &m_freeBuffer) < 0) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't queue buffer" << TRACE_VALUE(m_freeBuffer.index));
        std::exit(-1);
    }
    if (ioctl(m_fd, VIDIOC_STREAMON, &m_bufferType) < 0) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't set video device to stream on.");
        std::exit(-1);
    }
    m_freeBuffer.index = 0;
}

int Surface::flip() {
    if (ioctl(m_fd, VIDIOC_QBUF, &m_freeBuffer) < 0) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't queue buffer" << TRACE_VALUE(m_freeBuffer.index));
        recoverBuffer();
        return -1;
    }
    m_freeBuffer.index = m_freeBuffer.index == 0 ? 1 : 0;
    m_bufferOwed = !dequeue();
    if (m_bufferOwed) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't dequeue buffer" << TRACE_VALUE(m_freeBuffer.index));
    }
    return static_cast<int>(m_freeBuffer.index);
}

/// Takes a buffer back. If that fails, or if there is no such buffer: false, the index unchanged.
bool Surface::dequeue() {
    const std::uint32_t index = m_freeBuffer.index;
    const bool taken =
        ioctl(m_fd, VIDIOC_DQBUF, &m_freeBuffer) == 0 && m_freeBuffer.index < m_buffers.size();
    if (!taken) {
        m_freeBuffer.index = index;
    }
    return taken;
}

/// After a failed dequeue the driver may still hold both buffers, and then takes neither again.
/// Without this the picture would stand still for ever.
void Surface::recoverBuffer() {
    if (m_bufferOwed) {
        m_bufferOwed = !dequeue();
    }
}

void Surface::close() {
    if (ioctl(m_fd, VIDIOC_STREAMOFF, &m_bufferType) < 0) {
        TRACE(Trace::LEVEL_ERROR, "FAILED to VIDIOC_STREAMOFF.");
    }
    for (const Buffer& buffer : m_buffers) {
        munmap(buffer.start, buffer.length);
    }
    ::close(m_fd);
    m_closed = true;
}

} // namespace paint
