/// \file
/// Plain V4L2 calls on an output device, for the surface contract tests: they run on the virtual
/// device and on a kernel's driver alike.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace contract {

inline std::string devicePath() {
    const char* chosen = std::getenv("BOOTLUME_CONTRACT_DEVICE");
    return chosen != nullptr ? chosen : "/dev/v4l/by-path/platform-imx-ipuv3-ovl.5-video-index0";
}

/// One opening of the device; every call returns 0 or the errno value.
class Device {
public:
    Device() : m_fd(::open(devicePath().c_str(), O_RDWR)) {}
    ~Device() { close(); }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    int fd() const { return m_fd; }
    void close() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
        m_fd = -1;
    }
    int call(unsigned long request, void* argument) const {
        return ::ioctl(m_fd, request, argument) < 0 ? errno : 0;
    }
    int getFormat(v4l2_format& format, std::uint32_t type = V4L2_BUF_TYPE_VIDEO_OUTPUT) const {
        format = v4l2_format{};
        format.type = type;
        return call(VIDIOC_G_FMT, &format);
    }
    int requestBuffers(std::uint32_t& count, std::uint32_t type = V4L2_BUF_TYPE_VIDEO_OUTPUT,
                       std::uint32_t memory = V4L2_MEMORY_MMAP) const {
        v4l2_requestbuffers request{};
        request.count = count;
        request.type = type;
        request.memory = memory;
        const int error = call(VIDIOC_REQBUFS, &request);
        count = request.count;
        return error;
    }
    int buffers(std::uint32_t count) const { return requestBuffers(count); }
    static v4l2_buffer buffer(std::uint32_t index) {
        v4l2_buffer made{};
        made.index = index;
        made.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
        made.memory = V4L2_MEMORY_MMAP;
        return made;
    }
    int query(std::uint32_t index, v4l2_buffer& about) const {
        about = buffer(index);
        return call(VIDIOC_QUERYBUF, &about);
    }
    std::uint32_t flagsOf(std::uint32_t index) const {
        v4l2_buffer about{};
        return query(index, about) == 0 ? about.flags : ~0U;
    }
    int queue(std::uint32_t index) const {
        v4l2_buffer queued = buffer(index);
        return call(VIDIOC_QBUF, &queued);
    }
    int dequeue(std::uint32_t& index) const {
        v4l2_buffer taken = buffer(0);
        const int error = call(VIDIOC_DQBUF, &taken);
        index = taken.index;
        return error;
    }
    int streamOn(int type = V4L2_BUF_TYPE_VIDEO_OUTPUT) const {
        return call(VIDIOC_STREAMON, &type);
    }
    int streamOff(int type = V4L2_BUF_TYPE_VIDEO_OUTPUT) const {
        return call(VIDIOC_STREAMOFF, &type);
    }

private:
    int m_fd;
};

/// One mapping of a buffer, unmapped with the object.
class Mapping {
public:
    Mapping(const Device& device, std::uint32_t offset, std::size_t length,
            int protection = PROT_READ | PROT_WRITE, int flags = MAP_SHARED)
        : m_length(length),
          m_start(
              ::mmap(nullptr, length, protection, flags, device.fd(), static_cast<off_t>(offset))),
          m_error(m_start == MAP_FAILED ? errno : 0) {}
    ~Mapping() { unmap(); }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    int unmap() {
        void* start = std::exchange(m_start, MAP_FAILED);
        return start != MAP_FAILED && ::munmap(start, m_length) != 0 ? errno : 0;
    }
    int error() const { return m_error; }
    unsigned char* bytes() const { return static_cast<unsigned char*>(m_start); }
    std::size_t length() const { return m_length; }

private:
    std::size_t m_length;
    void* m_start;
    int m_error;
};

} // namespace contract
