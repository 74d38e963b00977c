#include "device.h"

#include "log.h"
#include "real.h"
#include "settings.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace virtual_device {
namespace {

std::atomic<Device*> current{nullptr};

constexpr std::uint32_t TYPE = V4L2_BUF_TYPE_VIDEO_OUTPUT;
constexpr std::uint32_t DEVICE_VERSION = 0x00010000;
constexpr std::uint32_t DEVICE_CAPS = V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_STREAMING;

static_assert(sizeof(void*) != 4 || (sizeof(v4l2_format) == 204 && sizeof(v4l2_buffer) == 68),
              "the program and the kernel agree on these sizes on a 32-bit machine");

int queryCapabilities(v4l2_capability& caps) {
    caps = v4l2_capability{};
    memcpy(caps.driver, "virtual-device", sizeof("virtual-device"));
    memcpy(caps.card, "Overlay on a desk", sizeof("Overlay on a desk"));
    memcpy(caps.bus_info, "platform:virtual-device", sizeof("platform:virtual-device"));
    caps.version = DEVICE_VERSION;
    caps.device_caps = DEVICE_CAPS;
    caps.capabilities = DEVICE_CAPS | V4L2_CAP_DEVICE_CAPS;
    return 0;
}

} // namespace

Device& device() {
    Device* mine = current.load(std::memory_order_acquire);
    if (mine == nullptr) {
        auto* fresh = new Device; // lives until the process ends, beyond all static objects
        if (current.compare_exchange_strong(mine, fresh)) {
            mine = fresh;
        }
    }
    return *mine;
}

Device* deviceIfUsed() {
    return current.load(std::memory_order_acquire);
}

void forgetDevice() {
    current.store(nullptr);
}

Device::Device()
    : m_display(
          m_mutex, m_queue,
          [this](std::uint32_t buffer) {
              Record record("display", "show");
              const std::uint64_t frame = m_screen.show(
                  {m_queue.pixels(buffer), m_queue.bufferBytes(), m_format.width, m_format.height,
                   m_format.bytesperline, m_format.pixelformat, buffer});
              record.add("frame", std::int64_t(frame));
              record.add("buffer", buffer);
              record.write();
          },
          [this] {
              ++m_released;
              wakeAll(&m_released, false);
          }),
      m_format(initialFormat()) {}

void Device::endOpening(int fd) {
    const std::lock_guard<std::mutex> control(m_control);
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_owner == fd) {
        stopStream(lock);
        m_queue.allocate(0, 0);
        m_owner = NOBODY;
        m_screen.unclaim();
    }
}

int Device::ioctl(int fd, std::uint32_t request, void* argument) {
    if (argument == nullptr) {
        return EFAULT;
    }
    auto& format = *static_cast<v4l2_format*>(argument);
    auto& buffer = *static_cast<v4l2_buffer*>(argument);
    switch (request) {
    case VIDIOC_QUERYCAP:
        return queryCapabilities(*static_cast<v4l2_capability*>(argument));
    case VIDIOC_G_FMT: {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (format.type != TYPE) {
            return EINVAL;
        }
        format.fmt.pix = m_format;
        return 0;
    }
    case VIDIOC_S_FMT:
        return setFormat(format);
    case VIDIOC_REQBUFS:
        return requestBuffers(fd, *static_cast<v4l2_requestbuffers*>(argument));
    case VIDIOC_QUERYBUF: {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return buffer.type == TYPE ? m_queue.query(buffer) : EINVAL;
    }
    case VIDIOC_QBUF:
        return queueBuffer(fd, buffer);
    case VIDIOC_DQBUF:
        return dequeueBuffer(fd, buffer);
    case VIDIOC_STREAMON:
        return streamOn(fd, *static_cast<std::uint32_t*>(argument));
    case VIDIOC_STREAMOFF:
        return streamOff(fd, *static_cast<std::uint32_t*>(argument));
    default:
        return ENOTTY;
    }
}

int Device::setFormat(v4l2_format& format) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (format.type != TYPE) {
        return EINVAL;
    }
    v4l2_pix_format wish = format.fmt.pix;
    adjustFormat(wish);
    const bool same = wish.width == m_format.width && wish.height == m_format.height &&
                      wish.bytesperline == m_format.bytesperline &&
                      wish.sizeimage == m_format.sizeimage;
    if (m_queue.count() > 0 && !same) {
        return EBUSY;
    }
    m_format = wish;
    format.fmt.pix = wish;
    return 0;
}

int Device::requestBuffers(int fd, v4l2_requestbuffers& request) {
    const std::lock_guard<std::mutex> control(m_control);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (request.type != TYPE) {
        return EINVAL;
    }
    // A set that is still mapped is orphaned: its mappings stay, and the set is replaced.
    request.capabilities = V4L2_BUF_CAP_SUPPORTS_MMAP | V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS;
    request.flags = 0;
    memset(request.reserved, 0, sizeof(request.reserved));
    if (request.memory != V4L2_MEMORY_MMAP) {
        return EINVAL;
    }
    if (ownedByOther(fd) || m_streaming) {
        return EBUSY;
    }
    if (request.count > 0 && m_owner == NOBODY && !m_screen.claim()) {
        return EBUSY;
    }
    request.count = std::min(request.count, settings().maxBuffers);
    const int error = m_queue.allocate(request.count, m_format.sizeimage);
    m_owner = error == 0 && request.count > 0 ? fd : NOBODY;
    if (m_owner == NOBODY) {
        m_screen.unclaim();
    }
    return error;
}

int Device::queueBuffer(int fd, v4l2_buffer& buffer) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (buffer.type != TYPE) {
            return EINVAL;
        }
        if (ownedByOther(fd)) {
            return EBUSY;
        }
        if (const int error = m_queue.queue(buffer)) {
            return error;
        }
    }
    m_display.wake();
    return 0;
}

/// Success, EAGAIN where the caller has to wait, or the final failure.
int Device::tryDequeue(int fd, v4l2_buffer& buffer) {
    if (buffer.type != TYPE) {
        return EINVAL;
    }
    if (ownedByOther(fd)) {
        return EBUSY;
    }
    if (!m_streaming) {
        return EINVAL;
    }
    return m_queue.dequeue(buffer) ? 0 : EAGAIN;
}

int Device::dequeueBuffer(int fd, v4l2_buffer& buffer) {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (true) {
        const int error = tryDequeue(fd, buffer);
        if (error != EAGAIN) {
            return error;
        }
        const std::uint32_t seen = m_released;
        lock.unlock();
        const int interrupted = waitWhile(&m_released, seen, -1);
        lock.lock();
        if (interrupted == EINTR) {
            return EINTR;
        }
    }
}

int Device::streamOn(int fd, std::uint32_t type) {
    const std::lock_guard<std::mutex> control(m_control);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (ownedByOther(fd)) {
        return EBUSY;
    }
    if (type != TYPE) {
        return EINVAL;
    }
    if (m_streaming) {
        return 0;
    }
    if (m_queue.count() == 0) {
        return EINVAL;
    }
    if (!m_display.start()) {
        return ENOMEM;
    }
    m_streaming = true;
    m_screen.switchOn();
    return 0;
}

int Device::streamOff(int fd, std::uint32_t type) {
    const std::lock_guard<std::mutex> control(m_control);
    std::unique_lock<std::mutex> lock(m_mutex);
    if (ownedByOther(fd)) {
        return EBUSY;
    }
    if (type != TYPE) {
        return EINVAL;
    }
    stopStream(lock);
    return 0;
}

/// Needs m_control; gives the lock free while the display's thread ends.
void Device::stopStream(std::unique_lock<std::mutex>& lock) {
    const bool wasOn = m_streaming;
    m_streaming = false;
    if (wasOn) {
        lock.unlock();
        m_display.stop();
        lock.lock();
        m_screen.switchOff();
    }
    m_queue.cancel();
    ++m_released;
    wakeAll(&m_released, false);
}

void Device::abandon() {
    // The program is ending on this thread; what others still do is not waited for.
    if (m_streaming) {
        m_screen.switchOff();
    }
}

} // namespace virtual_device
