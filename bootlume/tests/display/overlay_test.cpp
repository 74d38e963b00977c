#include "display/overlay.h"

#include "desk.h"
#include "support/waiting.h"

#include <gtest/gtest.h>

#include <thread>

namespace paint {
namespace {

TEST(AnOverlay, ThatIsStoppedBeforeItRunsClosesTheDisplayWithoutDrawing) {
    const desk::Calls before = desk::calls();
    {
        Overlay overlay;
        overlay.stop();
        overlay.run();
        EXPECT_EQ(desk::made(before, "VIDIOC_STREAMOFF"), 1);
    }
    EXPECT_EQ(desk::made(before, "VIDIOC_QBUF"), 1);
    EXPECT_EQ(desk::made(before, "VIDIOC_DQBUF"), 0);
    EXPECT_EQ(desk::made(before, "VIDIOC_STREAMOFF"), 1);
    EXPECT_EQ(desk::made(before, "close"), 1);
}

TEST(AnOverlay, ThatNeverRunsIsClosedByItsDestructor) {
    const desk::Calls before = desk::calls();
    { const Overlay overlay; }
    EXPECT_EQ(desk::made(before, "VIDIOC_STREAMOFF"), 1);
    EXPECT_EQ(desk::made(before, "close"), 1);
}

TEST(AnOverlay, ClosesTheDisplayOnItsOwnThreadAndOnlyOnce) {
    const desk::Calls before = desk::calls();
    {
        Overlay overlay;
        std::thread painter(&Overlay::run, &overlay);
        for (int text = 0; text < 100; ++text) {
            overlay.setText("Title " + std::to_string(text), "one\ntwo");
        }
        EXPECT_TRUE(eventually([&] { return desk::made(before, "VIDIOC_DQBUF") >= 2; }));
        overlay.stop();
        painter.join();
        EXPECT_EQ(desk::made(before, "close"), 1);
    }
    EXPECT_EQ(desk::made(before, "VIDIOC_STREAMOFF"), 1);
    EXPECT_EQ(desk::made(before, "munmap"), 2);
    EXPECT_EQ(desk::made(before, "close"), 1);
}

} // namespace
} // namespace paint
