#include "display/surface.h"

#include "desk.h"

#include <gtest/gtest.h>

#include <algorithm>

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
