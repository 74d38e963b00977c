#include "display/surface.h"

#include "desk.h"

#include <gmock/gmock.h>

#include <dlfcn.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstdarg>
#include <optional>

namespace {

/// What the driver claims to give back, instead of the truth.
std::optional<std::uint32_t> lie;

} // namespace

/// Stands before the virtual device's.
extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    static const auto next =
        reinterpret_cast<int (*)(int, unsigned long, ...)>(dlsym(RTLD_NEXT, "ioctl"));
    const int result = next(descriptor, request, argument);
    if (request == VIDIOC_DQBUF && result == 0 && lie) {
        static_cast<v4l2_buffer*>(argument)->index = *lie;
    }
    return result;
}

namespace paint {
namespace {

TEST(ASurface, HoldsTwoWhiteBuffersWithTheFirstOneFree) {
    const desk::Calls before = desk::calls();
    const Surface surface;
    const auto buffers = surface.buffers();
    ASSERT_EQ(buffers.size(), 2u);
    for (const Buffer& buffer : buffers) {
        EXPECT_EQ(buffer.length, Surface::WIDTH * Surface::HEIGHT * Surface::BYTES_PER_PIXEL);
        const auto* const bytes = static_cast<const unsigned char*>(buffer.start);
        EXPECT_TRUE(std::all_of(bytes, bytes + buffer.length,
                                [](unsigned char byte) { return byte == 0xFF; }));
    }
    EXPECT_NE(buffers[0].start, buffers[1].start);
    EXPECT_EQ(surface.freeBufferIndex(), 0u);
    EXPECT_EQ(desk::made(before, "VIDIOC_QBUF"), 1);
}

TEST(ASurface, FlipsToTheOtherBufferEachTime) {
    Surface surface;
    for (const int expected : {1, 0, 1, 0, 1}) {
        EXPECT_EQ(surface.flip(), expected);
        EXPECT_EQ(surface.freeBufferIndex(), static_cast<unsigned>(expected));
    }
}

TEST(ASurface, KeepsItsFreeBufferWhenQueueingFails) {
    Surface surface;
    ASSERT_EQ(surface.flip(), 1);
    surface.close();
    EXPECT_EQ(surface.flip(), -1); // nothing can be queued any more
    EXPECT_EQ(surface.freeBufferIndex(), 1u);
}

TEST(ASurface, RefusesABufferThatThereIsNotLikeAFailedDequeue) {
    for (const std::uint32_t index : {2U, 7U, 0xFFFFFFFFU}) {
        Surface surface;
        ASSERT_EQ(surface.flip(), 1);
        lie = index;
        testing::internal::CaptureStdout();
        EXPECT_EQ(surface.flip(), 0);
        EXPECT_THAT(testing::internal::GetCapturedStdout(),
                    testing::HasSubstr("| Couldn't dequeue buffer, m_freeBuffer.index = 0|"));
        EXPECT_EQ(surface.freeBufferIndex(), 0U);
        EXPECT_EQ(surface.flip(), 1);
        lie.reset();
        EXPECT_EQ(surface.flip(), 0);
    }
}

TEST(ASurface, IsClosedByItsDestructor) {
    const desk::Calls before = desk::calls();
    { const Surface surface; }
    EXPECT_EQ(desk::made(before, "VIDIOC_STREAMOFF"), 1);
    EXPECT_EQ(desk::made(before, "munmap"), 2);
    EXPECT_EQ(desk::made(before, "close"), 1);
}

TEST(ASurface, IsNotClosedTwice) {
    const desk::Calls before = desk::calls();
    {
        Surface surface;
        surface.close();
        EXPECT_EQ(surface.buffers().size(), 2u);
    }
    EXPECT_EQ(desk::made(before, "VIDIOC_STREAMOFF"), 1);
    EXPECT_EQ(desk::made(before, "munmap"), 2);
    EXPECT_EQ(desk::made(before, "close"), 1);
}

} // namespace
} // namespace paint
