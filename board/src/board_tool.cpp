// The board's own helper. "send PATH TEXT" sends one datagram, exactly the bytes of TEXT.
// "pattern DEVICE" shows a test picture on a video output until a signal ends it, and so checks the
// driver and the way from its screen to the host without the splash.
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr std::uint32_t WIDTH = 480;
constexpr std::uint32_t HEIGHT = 800;

struct Frame {
    void* start;
    std::uint32_t length;
};

int fail(const char* step) {
    std::fprintf(stderr, "board-tool: %s: %s\n", step, std::strerror(errno));
    return 1;
}

int send(const char* path, const std::string& text) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    const auto sent = sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&address),
                             sizeof(address));
    return sent == static_cast<ssize_t>(text.size()) ? 0 : fail(path);
}

v4l2_buffer record(std::uint32_t index) {
    v4l2_buffer buffer{};
    buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.index = index;
    return buffer;
}

/// Every pixel differs from its neighbours, so a shift of one pixel or one line shows.
void draw(const Frame& frame) {
    auto* pixel = static_cast<std::uint16_t*>(frame.start);
    for (std::uint32_t y = 0; y < HEIGHT; ++y) {
        for (std::uint32_t x = 0; x < WIDTH; ++x) {
            *pixel++ = static_cast<std::uint16_t>(x * 31U + y * 7919U);
        }
    }
}

bool setUp(int fd, std::array<Frame, 2>& frames) {
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    if (ioctl(fd, VIDIOC_G_FMT, &format) < 0) {
        return false;
    }
    format.fmt.pix.width = WIDTH;
    format.fmt.pix.height = HEIGHT;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_RGB565;
    v4l2_requestbuffers request{};
    request.count = static_cast<std::uint32_t>(frames.size());
    request.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    request.memory = V4L2_MEMORY_MMAP;
    if (ioctl(fd, VIDIOC_S_FMT, &format) < 0 || ioctl(fd, VIDIOC_REQBUFS, &request) < 0) {
        return false;
    }
    for (std::uint32_t index = 0; index < frames.size(); ++index) {
        v4l2_buffer buffer = record(index);
        if (ioctl(fd, VIDIOC_QUERYBUF, &buffer) < 0) {
            return false;
        }
        void* start = mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd,
                           static_cast<off_t>(buffer.m.offset));
        if (start == MAP_FAILED || buffer.length < WIDTH * HEIGHT * 2U) {
            return false;
        }
        frames.at(index) = {start, buffer.length};
        draw(frames.at(index));
        if (ioctl(fd, VIDIOC_QBUF, &buffer) < 0) {
            return false;
        }
    }
    int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    return ioctl(fd, VIDIOC_STREAMON, &type) == 0;
}

int pattern(const char* device) {
    const int fd = open(device, O_RDWR);
    if (fd < 0) {
        return fail(device);
    }
    std::array<Frame, 2> frames{};
    if (!setUp(fd, frames)) {
        return fail("setting up the output");
    }
    while (true) {
        v4l2_buffer buffer = record(0);
        if (ioctl(fd, VIDIOC_DQBUF, &buffer) < 0 || ioctl(fd, VIDIOC_QBUF, &buffer) < 0) {
            return fail("showing a frame");
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "send" && argc == 4) {
        return send(argv[2], argv[3]);
    }
    if (command == "pattern" && argc == 3) {
        return pattern(argv[2]);
    }
    std::fputs("usage: board-tool send PATH TEXT | board-tool pattern DEVICE\n", stderr);
    return 2;
}
