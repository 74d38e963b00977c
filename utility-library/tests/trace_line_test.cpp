#include "support/stdout_capture.h"
#include "support/trace_fixture.h"

#include "tracing.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <limits>
#include <string>
#include <thread>

namespace {

using ATraceLine = TraceFixture;
using Trace::Log;

const char* const FILE_NAME = "folder/file.cpp";

/// The line that a tag of this kind gives.
template <class Tag>
std::string lineOf(std::int32_t level, Tag tag, const std::string& text = "text") {
    const StdoutCapture output;
    Log(level, FILE_NAME, 41, tag) << text;
    return output.text();
}

TEST_F(ATraceLine, WithIdZeroShowsTheLevelAndAColon) {
    EXPECT_EQ(lineOf(4, 0), prefix() + "   INFO:\t| text| folder/file.cpp:41\n");
}

TEST_F(ATraceLine, WithAnIdShowsTwoColonsAndTheIdInHexadecimal) {
    EXPECT_EQ(lineOf(4, 31), prefix() + "   INFO::1f\t| text| folder/file.cpp:41\n");
    EXPECT_EQ(lineOf(4, std::numeric_limits<std::int32_t>::max()),
              prefix() + "   INFO::7fffffff\t| text| folder/file.cpp:41\n");
}

TEST_F(ATraceLine, WithANegativeIdShowsOneColon) {
    EXPECT_EQ(lineOf(4, -31), prefix() + "   INFO:\t| text| folder/file.cpp:41\n");
}

TEST_F(ATraceLine, WithANameShowsAColonAndTheName) {
    EXPECT_EQ(lineOf(5, "DISPATCHER"),
              prefix() + "  DEBUG:DISPATCHER\t| text| folder/file.cpp:41\n");
}

TEST_F(ATraceLine, WithoutANameShowsTheLevelAlone) {
    EXPECT_EQ(lineOf(4, static_cast<const char*>(nullptr)),
              prefix() + "   INFO\t| text| folder/file.cpp:41\n");
}

TEST_F(ATraceLine, RightAlignsEveryLevelInSevenColumns) {
    Log::s_disableColors = true;
    const char* const fields[] = {"       ", "  FATAL", "  ERROR", "   WARN",
                                  "   INFO", "  DEBUG", "VERBOSE"};
    for (std::int32_t level = 0; level <= 6; ++level) {
        EXPECT_EQ(lineOf(level, 0), prefix() + fields[level] + ":\t| text| folder/file.cpp:41\n");
    }
}

TEST_F(ATraceLine, OfALevelOutsideTheTablesHasNoLevelName) {
    for (const std::int32_t level : {-1, 7, 1000, std::numeric_limits<std::int32_t>::min(),
                                     std::numeric_limits<std::int32_t>::max()}) {
        EXPECT_EQ(lineOf(level, 0), prefix() + "       :\t| text| folder/file.cpp:41\n");
    }
}

TEST_F(ATraceLine, RightAlignsTheThreadNameIn16Columns) {
    nameThread("bl-dispatcher");
    EXPECT_THAT(lineOf(4, 0), testing::HasSubstr(") (   bl-dispatcher)    INFO:\t|"));
    nameThread("abcdefghijklmno");
    EXPECT_THAT(lineOf(4, 0), testing::HasSubstr(") ( abcdefghijklmno)    INFO:\t|"));
    nameThread("abcdefghijklmnop");
    EXPECT_THAT(lineOf(4, 0), testing::HasSubstr(") ( abcdefghijklmno)    INFO:\t|"));
    nameThread("");
    EXPECT_THAT(lineOf(4, 0), testing::HasSubstr(") (                )    INFO:\t|"));
}

TEST_F(ATraceLine, ShowsMillisecondsWithThreeDigits) {
    setMicroseconds(7'999);
    EXPECT_THAT(lineOf(4, 0), testing::StartsWith("[20240131-235959:007] ("));
    setMicroseconds(0);
    EXPECT_THAT(lineOf(4, 0), testing::StartsWith("[20240131-235959:000] ("));
    setMicroseconds(999'999);
    EXPECT_THAT(lineOf(4, 0), testing::StartsWith("[20240131-235959:999] ("));
}

TEST_F(ATraceLine, ShowsTheLocalTime) {
    setenv("TZ", "XYZ-5:30", 1);
    std::string line;
    std::thread other([&] { line = lineOf(4, 0); }); // a thread keeps the date of its last second
    other.join();
    EXPECT_THAT(line, testing::StartsWith("[20240201-052959:007] ("));
}

TEST_F(ATraceLine, ShowsTheLastSecondBefore1970) {
    setSecond(-1);
    std::string line;
    std::thread other([&] { line = lineOf(4, 0); }); // that has formatted no date yet
    other.join();
    EXPECT_THAT(line, testing::StartsWith("[19691231-235959:007] ("));
}

TEST_F(ATraceLine, NamesTheFileByItsPathFromTheRootAndTheLineOfTheMacro) {
    const StdoutCapture output;
    const int line = __LINE__ + 1;
    TRACE(Trace::LEVEL_INFO, "here");
    EXPECT_EQ(output.text(), prefix() + "   INFO:\t| here| utility-library/tests/" +
                                 "trace_line_test.cpp:" + std::to_string(line) + "\n");
}

TEST_F(ATraceLine, KeepsAPercentSignOnTheConsole) {
    EXPECT_EQ(lineOf(4, 0, "100 %s %n %"),
              prefix() + "   INFO:\t| 100 %s %n %| folder/file.cpp:41\n");
}

TEST_F(ATraceLine, OfAnyLengthIsWrittenWhole) {
    const std::string text(3'000'000, 'x');
    // Compared with == : a difference of megabytes is no help to anybody.
    EXPECT_TRUE(lineOf(4, 0, text) == prefix() + "   INFO:\t| " + text + "| folder/file.cpp:41\n");
}

TEST_F(ATraceLine, WithoutAFileNameLosesTheRestOfItsTrailer) {
    const StdoutCapture output;
    Log(4, nullptr, 41, 0) << "text";
    EXPECT_EQ(output.text(), prefix() + "   INFO:\t| text| \n");
}

TEST_F(ATraceLine, ThatCannotBeWrittenIsNoFailure) {
    const int saved = dup(STDOUT_FILENO);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    std::fflush(stdout);
    dup2(full, STDOUT_FILENO);
    TRACE(Trace::LEVEL_INFO, "lost");
    dup2(saved, STDOUT_FILENO);
    close(saved);
    close(full);
    EXPECT_THAT(lineOf(4, 0), testing::HasSubstr("text"));
}

struct Colours {
    const char* mode;
    bool enable;
    bool disable;
    const char* of[8]; ///< of levels 0 to 7; null: none
};

void PrintTo(const Colours& colours, std::ostream* out) {
    *out << colours.mode;
}

class AColouredTraceLine : public TraceFixture, public testing::WithParamInterface<Colours> {};

TEST_P(AColouredTraceLine, BeginsWithItsLevelsColourAndEndsWithTheReset) {
    Log::s_enableColors = GetParam().enable;
    Log::s_disableColors = GetParam().disable;
    const char* const names[] = {"       ", "  FATAL", "  ERROR", "   WARN",
                                 "   INFO", "  DEBUG", "VERBOSE", "       "};
    for (std::int32_t level = 0; level <= 7; ++level) {
        const char* const colour = GetParam().of[level];
        const std::string line = prefix() + names[level] + ":\t| text| folder/file.cpp:41";
        EXPECT_EQ(lineOf(level, 0),
                  colour == nullptr ? line + "\n" : colour + line + "\033[0;39;49m\n");
    }
}

INSTANTIATE_TEST_SUITE_P(
    , AColouredTraceLine,
    testing::Values(Colours{"OnlyTheLoudOnes",
                            false,
                            false,
                            {nullptr, "\033[1;31m", "\033[1;31m", "\033[1;33m", nullptr, nullptr,
                             nullptr, nullptr}},
                    Colours{"All",
                            true,
                            false,
                            {"\033[0;39;49m", "\033[1;31m", "\033[1;31m", "\033[1;33m",
                             "\033[0;39;49m", "\033[1;36m", "\033[1;36m", "\033[0;39;49m"}},
                    Colours{"NoneThoughEnabled", true, true, {}}, Colours{"None", false, true, {}}),
    [](const auto& test) { return test.param.mode; });

} // namespace
