#pragma once

#include <sys/time.h>

// The driver of a 32-bit device counts times in 32 bits, even if the program counts in 64. With 64
// bits the buffer's record would have another size, and its requests other numbers.
struct DriverTime {
    long tv_sec;
    long tv_usec;
};
#define timeval DriverTime
#include <linux/videodev2.h>
#undef timeval

#include <cstdint>
#include <vector>

namespace paint {

// What goes to the kernel on the 32-bit device.
static_assert(sizeof(void*) != 4 || sizeof(v4l2_format) == 204, "the device's v4l2_format");
static_assert(sizeof(void*) != 4 || sizeof(v4l2_buffer) == 68, "the device's v4l2_buffer");

/// One mapped frame buffer: 480 x 800 pixels of RGB565, 960 bytes a line.
struct Buffer {
    void* start;
    std::uint32_t length; ///< in bytes, as the driver reports it
};

/// The video output overlay with its two frame buffers: one on the screen, one to draw into.
///
/// Built on the main thread; then bound to the thread that draws. A display that cannot be set up
/// ends the process from within the constructor, with an "ERROR" line and exit status 255.
class Surface {
public:
    static constexpr std::uint32_t WIDTH = 480;
    static constexpr std::uint32_t HEIGHT = 800;
    static constexpr std::uint32_t BYTES_PER_PIXEL = 2;

    /// On return buffer 1 is on the screen, white, and buffer 0 is free.
    Surface();
    /// Closes the surface unless close() has run.
    virtual ~Surface();

    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;

    /// The mapped buffers in index order; valid until close().
    std::vector<Buffer> buffers() const { return m_buffers; }
    /// The buffer to draw into next.
    std::uint32_t freeBufferIndex() const { return m_freeBuffer.index; }

    /// Shows the buffer just drawn and waits for the display to release the other. Returns the new
    /// free index, or -1 if the buffer could not be queued: it stays free, then. A dequeue that
    /// fails is only logged. If the driver then refuses the next buffer, the dequeue is tried
    /// again, and may make the other buffer the free one.
    int flip();
    /// Stops streaming, unmaps the buffers and closes the device. To be called once.
    void close();

private:
    void openDevice();
    void queryCapabilities() const;
    void setFormat() const;
    int allocateBuffers();
    int allocateBuffer(std::uint32_t index, const v4l2_requestbuffers& request);
    void showFirstBuffer();
    bool dequeue();
    void recoverBuffer();

    const char* m_device = "/dev/v4l/by-path/platform-imx-ipuv3-ovl.5-video-index0";
    std::int32_t m_fd = -1;
    std::vector<Buffer> m_buffers;
    std::uint32_t m_bufferType = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    v4l2_buffer m_freeBuffer{}; ///< its index is the free buffer's, between flips
    bool m_closed = false;
    bool m_bufferOwed = false; ///< the last dequeue failed
};

} // namespace paint
