// What the program may expect of its overlay, misuse included. Only what a kernel driver can do as
// well is asked for: these tests run on the virtual device and on the board's driver.
#include "contract_device.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

using contract::Device;
using contract::Mapping;

namespace {

constexpr std::uint32_t WIDTH = 480;
constexpr std::uint32_t HEIGHT = 800;

/// An opened device with the program's format.
class ASurface : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_GE(device.fd(), 0) << std::strerror(errno);
        ASSERT_EQ(0, device.getFormat(format));
        format.fmt.pix.width = WIDTH;
        format.fmt.pix.height = HEIGHT;
        format.fmt.pix.pixelformat = V4L2_PIX_FMT_RGB565;
        format.fmt.pix.field = V4L2_FIELD_ANY;
        format.fmt.pix.colorspace = V4L2_COLORSPACE_SRGB;
        ASSERT_EQ(0, device.call(VIDIOC_S_FMT, &format));
    }
    v4l2_buffer queried(std::uint32_t index) const {
        v4l2_buffer about{};
        EXPECT_EQ(0, device.query(index, about));
        return about;
    }

    Device device;
    v4l2_format format{};
};

/// The same with two buffers, and the stream on where start() was called.
class AFlippingSurface : public ASurface {
protected:
    void SetUp() override {
        ASurface::SetUp();
        ASSERT_EQ(0, device.buffers(2));
    }
    void start() const {
        ASSERT_EQ(0, device.queue(1));
        ASSERT_EQ(0, device.streamOn());
    }
};

void ignoreSignal(int) {}

/// Blocks in a dequeue on a thread of its own.
class Waiter {
public:
    explicit Waiter(const Device& device)
        : m_thread([this, &device] {
              m_tid = gettid();
              std::uint32_t index = 0;
              m_error = device.dequeue(index);
              m_done = true;
          }) {}
    ~Waiter() { m_thread.join(); }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

    /// Returns once the thread sleeps, or has not had to.
    void untilItWaits() const {
        while (!m_done && (m_tid == 0 || !sleeps())) {
            std::this_thread::yield();
        }
    }
    bool done() const { return m_done; }
    pthread_t handle() { return m_thread.native_handle(); }
    int join() {
        while (!m_done) {
            std::this_thread::yield();
        }
        return m_error;
    }

private:
    bool sleeps() const {
        std::ifstream stat("/proc/self/task/" + std::to_string(m_tid) + "/stat");
        const std::string text(std::istreambuf_iterator<char>(stat), {});
        return text.find(") S ") != std::string::npos;
    }

    std::atomic<pid_t> m_tid{0};
    std::atomic<bool> m_done{false};
    std::atomic<int> m_error{-1};
    std::thread m_thread;
};

TEST_F(ASurface, IsAnOutputThatStreams) {
    v4l2_capability caps{};
    ASSERT_EQ(0, device.call(VIDIOC_QUERYCAP, &caps));
    EXPECT_NE(0U, caps.capabilities & V4L2_CAP_VIDEO_OUTPUT);
    EXPECT_NE(0U, caps.capabilities & V4L2_CAP_STREAMING);
    EXPECT_NE(0U, caps.capabilities & V4L2_CAP_DEVICE_CAPS);
    EXPECT_NE(0, caps.driver[0]);
}

TEST_F(ASurface, TakesTheFormatOfThePage) {
    const v4l2_pix_format& pix = format.fmt.pix;
    EXPECT_EQ(WIDTH, pix.width);
    EXPECT_EQ(HEIGHT, pix.height);
    EXPECT_EQ(std::uint32_t(V4L2_PIX_FMT_RGB565), pix.pixelformat);
    EXPECT_EQ(std::uint32_t(V4L2_FIELD_NONE), pix.field);
    EXPECT_GE(pix.bytesperline, WIDTH * 2);
    EXPECT_GE(pix.sizeimage, pix.bytesperline * HEIGHT);
    v4l2_format again{};
    ASSERT_EQ(0, device.getFormat(again));
    EXPECT_EQ(0, std::memcmp(&again.fmt.pix, &pix, sizeof(pix)));
}

TEST_F(ASurface, RefusesFormatsOfOtherTypes) {
    v4l2_format other{};
    EXPECT_EQ(EINVAL, device.getFormat(other, V4L2_BUF_TYPE_VIDEO_CAPTURE));
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    EXPECT_EQ(EINVAL, device.call(VIDIOC_S_FMT, &format));
}

TEST_F(ASurface, KnowsNoCallOfAnotherKind) {
    int pending = 0;
    EXPECT_EQ(ENOTTY, device.call(FIONREAD, &pending));
    EXPECT_EQ(ENOTTY, device.call(_IOWR('V', 250, int), &pending));
}

TEST_F(ASurface, RefusesBuffersOfAnotherTypeOrMemory) {
    std::uint32_t count = 2;
    EXPECT_EQ(EINVAL, device.requestBuffers(count, V4L2_BUF_TYPE_VIDEO_CAPTURE));
    EXPECT_EQ(EINVAL, device.requestBuffers(count, V4L2_BUF_TYPE_VIDEO_OUTPUT, 99));
}

TEST_F(ASurface, HasNothingToDoWithoutBuffers) {
    std::uint32_t index = 0;
    v4l2_buffer about{};
    EXPECT_EQ(EINVAL, device.query(0, about));
    EXPECT_EQ(EINVAL, device.queue(0));
    EXPECT_EQ(EINVAL, device.streamOn());
    EXPECT_EQ(EINVAL, device.dequeue(index));
    EXPECT_EQ(0, device.streamOff());
    EXPECT_EQ(0, device.buffers(0));
}

TEST_F(AFlippingSurface, TellsOffsetAndLengthOfEachBuffer) {
    const v4l2_buffer first = queried(0);
    const v4l2_buffer second = queried(1);
    EXPECT_EQ(0U, first.index);
    EXPECT_EQ(1U, second.index);
    EXPECT_GE(first.length, format.fmt.pix.sizeimage);
    EXPECT_EQ(first.length, second.length);
    EXPECT_NE(first.m.offset, second.m.offset);
    EXPECT_EQ(std::uint32_t(V4L2_MEMORY_MMAP), first.memory);
    constexpr std::uint32_t held = V4L2_BUF_FLAG_QUEUED | V4L2_BUF_FLAG_DONE | V4L2_BUF_FLAG_ERROR;
    EXPECT_EQ(0U, first.flags & held);
}

TEST_F(AFlippingSurface, RefusesToTellOfABufferThatIsNotThere) {
    v4l2_buffer about{};
    EXPECT_EQ(EINVAL, device.query(2, about));
    about = Device::buffer(0);
    about.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    EXPECT_EQ(EINVAL, device.call(VIDIOC_QUERYBUF, &about));
}

TEST_F(AFlippingSurface, MapsEachBufferToMemoryOfItsOwn) {
    Mapping first(device, queried(0).m.offset, queried(0).length);
    Mapping second(device, queried(1).m.offset, queried(1).length);
    Mapping again(device, queried(1).m.offset, queried(1).length);
    ASSERT_EQ(0, first.error() | second.error() | again.error());
    std::memset(first.bytes(), 0x11, first.length());
    std::memset(second.bytes(), 0x22, second.length());
    EXPECT_EQ(0x11, first.bytes()[first.length() - 1]);
    EXPECT_EQ(0x22, again.bytes()[0]);
    EXPECT_EQ(0x22, again.bytes()[again.length() - 1]);
}

TEST_F(AFlippingSurface, RefusesMappingsThatMakeNoSense) {
    const v4l2_buffer about = queried(1);
    const auto page = static_cast<std::uint32_t>(sysconf(_SC_PAGESIZE));
    EXPECT_EQ(EINVAL, Mapping(device, about.m.offset + page, page).error()) << "inside a buffer";
    EXPECT_EQ(EINVAL,
              Mapping(device, about.m.offset + 64 * about.length / page * page, page).error());
    EXPECT_EQ(EINVAL, Mapping(device, about.m.offset, about.length + 2 * page).error());
    EXPECT_EQ(EINVAL, Mapping(device, about.m.offset, page, PROT_READ).error());
    EXPECT_EQ(EINVAL,
              Mapping(device, about.m.offset, page, PROT_READ | PROT_WRITE, MAP_PRIVATE).error());
}

TEST_F(AFlippingSurface, RefusesToQueueABufferTwice) {
    ASSERT_EQ(0, device.queue(0));
    EXPECT_NE(0U, device.flagsOf(0) & V4L2_BUF_FLAG_QUEUED);
    EXPECT_EQ(EINVAL, device.queue(0));
    EXPECT_EQ(0, device.queue(1));
}

TEST_F(AFlippingSurface, RefusesToQueueWhatIsNoBufferOfIts) {
    EXPECT_EQ(EINVAL, device.queue(2));
    v4l2_buffer wrong = Device::buffer(0);
    wrong.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    EXPECT_EQ(EINVAL, device.call(VIDIOC_QBUF, &wrong));
    wrong = Device::buffer(0);
    wrong.memory = V4L2_MEMORY_USERPTR;
    EXPECT_EQ(EINVAL, device.call(VIDIOC_QBUF, &wrong));
    wrong = Device::buffer(0);
    wrong.bytesused = queried(0).length + 1;
    EXPECT_EQ(EINVAL, device.call(VIDIOC_QBUF, &wrong));
    EXPECT_EQ(0, device.queue(0));
}

TEST_F(AFlippingSurface, FillsInTheBufferThatIsQueued) {
    v4l2_buffer queued = Device::buffer(1);
    ASSERT_EQ(0, device.call(VIDIOC_QBUF, &queued));
    EXPECT_EQ(1U, queued.index);
    EXPECT_EQ(queried(1).length, queued.length);
    EXPECT_EQ(queried(1).m.offset, queued.m.offset);
    EXPECT_EQ(queued.length, queued.bytesused) << "a buffer queued with 0 bytes used is a full one";
    EXPECT_NE(0U, queued.flags & V4L2_BUF_FLAG_QUEUED);
}

TEST_F(AFlippingSurface, RefusesToDequeueWhileItDoesNotStream) {
    std::uint32_t index = 0;
    EXPECT_EQ(EINVAL, device.dequeue(index));
    ASSERT_EQ(0, device.queue(0));
    EXPECT_EQ(EINVAL, device.dequeue(index));
}

TEST_F(AFlippingSurface, RefusesToDequeueAnotherType) {
    start();
    v4l2_buffer wrong = Device::buffer(0);
    wrong.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    EXPECT_EQ(EINVAL, device.call(VIDIOC_DQBUF, &wrong));
}

TEST_F(AFlippingSurface, SwitchesOnTwiceAndOffTwice) {
    start();
    EXPECT_EQ(0, device.streamOn());
    EXPECT_EQ(0, device.streamOff());
    EXPECT_EQ(0, device.streamOff());
    EXPECT_EQ(EINVAL, device.streamOn(V4L2_BUF_TYPE_VIDEO_CAPTURE));
    EXPECT_EQ(EINVAL, device.streamOff(V4L2_BUF_TYPE_VIDEO_CAPTURE));
}

TEST_F(AFlippingSurface, GivesBuffersBackInTheOrderInWhichTheyWereQueued) {
    start();
    std::uint32_t drawn = 0;
    for (int flip = 0; flip < 10; ++flip) {
        ASSERT_EQ(0, device.queue(drawn));
        std::uint32_t released = 9;
        ASSERT_EQ(0, device.dequeue(released));
        EXPECT_EQ(1 - drawn, released);
        drawn = released;
    }
}

TEST_F(AFlippingSurface, ClearsTheFlagsOfADequeuedBuffer) {
    start();
    ASSERT_EQ(0, device.queue(0));
    v4l2_buffer taken = Device::buffer(0);
    ASSERT_EQ(0, device.call(VIDIOC_DQBUF, &taken));
    constexpr std::uint32_t states =
        V4L2_BUF_FLAG_QUEUED | V4L2_BUF_FLAG_DONE | V4L2_BUF_FLAG_ERROR;
    EXPECT_EQ(0U, taken.flags & states);
    EXPECT_EQ(1U, taken.index);
    EXPECT_EQ(std::uint32_t(V4L2_MEMORY_MMAP), taken.memory);
    EXPECT_EQ(0U, device.flagsOf(1) & states);
}

TEST_F(AFlippingSurface, ReturnsAllBuffersWhenItIsSwitchedOff) {
    start();
    ASSERT_EQ(0, device.queue(0));
    ASSERT_EQ(0, device.streamOff());
    EXPECT_EQ(0U, device.flagsOf(0) & V4L2_BUF_FLAG_QUEUED);
    EXPECT_EQ(0U, device.flagsOf(1) & V4L2_BUF_FLAG_QUEUED);
    std::uint32_t index = 0;
    EXPECT_EQ(EINVAL, device.dequeue(index));
    EXPECT_EQ(0, device.queue(1));
    EXPECT_EQ(0, device.queue(0));
    EXPECT_EQ(0, device.streamOn());
}

TEST_F(AFlippingSurface, KeepsItsBuffersWhileItStreams) {
    start();
    EXPECT_EQ(EBUSY, device.buffers(0));
    EXPECT_EQ(EBUSY, device.buffers(4));
    ASSERT_EQ(0, device.streamOff());
    EXPECT_EQ(0, device.buffers(0));
}

TEST_F(AFlippingSurface, RefusesAnotherSizeWhileItHasBuffers) {
    format.fmt.pix.width = 64;
    format.fmt.pix.height = 64;
    EXPECT_EQ(EBUSY, device.call(VIDIOC_S_FMT, &format));
    ASSERT_EQ(0, device.buffers(0));
    EXPECT_EQ(0, device.call(VIDIOC_S_FMT, &format));
}

TEST_F(AFlippingSurface, BelongsToTheOneWhoAskedForItsBuffers) {
    const Device other;
    ASSERT_GE(other.fd(), 0);
    std::uint32_t index = 0;
    EXPECT_EQ(EBUSY, other.buffers(2));
    EXPECT_EQ(EBUSY, other.queue(0));
    EXPECT_EQ(EBUSY, other.streamOn());
    EXPECT_EQ(EBUSY, other.streamOff());
    EXPECT_EQ(EBUSY, other.dequeue(index));
    v4l2_buffer about{};
    EXPECT_EQ(0, other.query(0, about)) << "looking is free";
}

TEST_F(AFlippingSurface, IsFreeAgainAfterTheLastClose) {
    start();
    device.close();
    const Device other;
    EXPECT_EQ(0, other.buffers(2));
}

TEST_F(AFlippingSurface, IsFreeAgainWhenItsBuffersAreGivenBack) {
    const Device other;
    ASSERT_EQ(0, device.buffers(0));
    EXPECT_EQ(0, other.buffers(2));
    EXPECT_EQ(EBUSY, device.buffers(2));
}

TEST_F(AFlippingSurface, WakesAWaitingDequeueWhenItIsSwitchedOff) {
    ASSERT_EQ(0, device.streamOn());
    Waiter waiter(device);
    waiter.untilItWaits();
    ASSERT_EQ(0, device.streamOff());
    EXPECT_EQ(EINVAL, waiter.join());
}

TEST_F(AFlippingSurface, EndsAWaitingDequeueOnASignalThatDoesNotRestart) {
    struct sigaction action {};
    action.sa_handler = ignoreSignal;
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
    ASSERT_EQ(0, device.streamOn());
    Waiter waiter(device);
    waiter.untilItWaits();
    while (!waiter.done()) {
        pthread_kill(waiter.handle(), SIGUSR1);
        std::this_thread::yield();
    }
    EXPECT_EQ(EINTR, waiter.join());
}

} // namespace
