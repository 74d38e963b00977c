#include "support/stdout_capture.h"

#include "tracing.h"

#include <gmock/gmock.h>

namespace {

TEST(ATrace, IsWrittenAtInfoAndNotAtDebugBeforeAnyConfiguration) {
    const StdoutCapture output;
    TRACE(Trace::LEVEL_DEBUG, "too talkative");
    TRACE(Trace::LEVEL_INFO, "important");
    EXPECT_THAT(output.text(), testing::HasSubstr("\t| important| "));
    EXPECT_THAT(output.text(), testing::Not(testing::HasSubstr("too talkative")));
}

} // namespace
