#include "support/stdout_capture.h"
#include "support/trace_fixture.h"

#include "tracing.h"

#include <chrono>
#include <future>
#include <mutex>
#include <thread>

namespace {

using ATraceMessage = TraceFixture;
using Trace::Log;

/// The message of the one line that was written: what stands between its bar and its trailer.
std::string messageOf(const StdoutCapture& output) {
    const std::string text = output.text();
    const auto begin = text.rfind("\t|");
    const auto end = text.rfind("| ");
    return begin == std::string::npos ? "" : text.substr(begin + 2, end - begin - 2);
}

Log lineOf(std::int32_t level) {
    return Log(level, "file.cpp", 1, 0);
}

TEST_F(ATraceMessage, HasOneBlankBeforeEachStringPiece) {
    const StdoutCapture output;
    lineOf(4) << "one" << std::string("two") << "";
    EXPECT_EQ(messageOf(output), " one two ");
}

TEST_F(ATraceMessage, ShowsNumbersAndCharactersWithoutPadding) {
    const StdoutCapture output;
    lineOf(4) << "n" << 7 << 'c' << -12L << 3U << 0.5;
    EXPECT_EQ(messageOf(output), " n7c-1230.5");
}

TEST_F(ATraceMessage, LosesWhatFollowsANullText) {
    const StdoutCapture output;
    lineOf(4) << "one" << static_cast<const char*>(nullptr) << "two" << 3;
    EXPECT_EQ(messageOf(output), " one ");
}

TEST_F(ATraceMessage, ShowsNamedValuesBehindTheText) {
    const StdoutCapture output;
    const std::string program = "reboot";
    const int result = -1;
    lineOf(4) << "ended" << Trace::named("program", program) << TRACE_VALUE(result);
    EXPECT_EQ(messageOf(output), " ended, program = reboot, result = -1");
}

TEST_F(ATraceMessage, TakesPiecesThroughItsStream) {
    const StdoutCapture output;
    lineOf(4).stream() << "raw";
    EXPECT_EQ(messageOf(output), "raw");
}

TEST_F(ATraceMessage, TakesAValueWithoutABlank) {
    const StdoutCapture output;
    Trace::Value value;
    value << "x" << 3;
    lineOf(4) << value << Trace::ValueFormat(0, ":%03d|%s", 7, "y");
    EXPECT_EQ(messageOf(output), "x3:007|y");
}

TEST_F(ATraceMessage, TakesAtMost255CharactersOfAFormattedValue) {
    const std::string text(255, 'x');
    EXPECT_EQ(Trace::ValueFormat(0, "%s", text.c_str()).str(), text);
    EXPECT_EQ(Trace::ValueFormat(0, "%s%s", text.c_str(), "y").str(), text);
    EXPECT_EQ(Trace::ValueFormat(0, "%s", "").str(), "");
}

TEST_F(ATraceMessage, WarnsOfAValueMoreImportantThanItsLine) {
    Log::s_disableColors = true;
    const StdoutCapture output;
    Log(2, "file.cpp", 1, 0) << "bad" << Trace::ValueFormat(1, " value %d", 9);
    EXPECT_EQ(output.text(), "WARN: loglevel wrong: 1 >= 2 for message:  value 9\n" + prefix() +
                                 "  ERROR:\t| bad value 9| file.cpp:1\n");
}

TEST_F(ATraceMessage, WritesThatWarningWithoutWaitingForTheOutputLock) {
    const StdoutCapture output;
    std::unique_lock<std::mutex> lock(Log::s_logMutex);
    {
        Log line(2, "file.cpp", 1, 0);
        line << Trace::ValueFormat(1, "x");
        EXPECT_EQ(output.text(), "WARN: loglevel wrong: 1 >= 2 for message: x\n");
        lock.unlock();
    }
    EXPECT_THAT(output.text(), testing::HasSubstr("file.cpp:1"));
}

TEST_F(ATraceMessage, WarnsOfNothingWhereTheValueIsAsImportantOrLessOrHasNoLevel) {
    for (const std::int32_t level : {0, -1, 2, 3, 4}) {
        const StdoutCapture output;
        lineOf(2) << Trace::ValueFormat(level, "shown");
        EXPECT_EQ(messageOf(output), "shown");
        EXPECT_THAT(output.text(), testing::Not(testing::HasSubstr("loglevel wrong")));
    }
}

TEST_F(ATraceMessage, LeavesOutAValueAboveTheConfiguredLevel) {
    const StdoutCapture output;
    lineOf(2) << "bad" << Trace::ValueFormat(5, "detail");
    EXPECT_EQ(messageOf(output), " bad");
    EXPECT_THAT(output.text(), testing::Not(testing::HasSubstr("loglevel wrong")));
    configure(5);
    lineOf(2) << "bad" << Trace::ValueFormat(5, "detail");
    EXPECT_EQ(messageOf(output), " baddetail");
}

TEST_F(ATraceMessage, IsWrittenUpToTheConfiguredLevel) {
    for (std::int32_t configured = 1; configured <= 6; ++configured) {
        configure(configured);
        for (std::int32_t level = 0; level <= 7; ++level) {
            const StdoutCapture output;
            TRACE(level, "x");
            EXPECT_EQ(!output.text().empty(), level <= configured) << level << configured;
        }
    }
}

TEST_F(ATraceMessage, EvaluatesNothingWhereItsLevelIsNotWritten) {
    int evaluated = 0;
    const auto touch = [&] { return ++evaluated; };
    TRACE(Trace::LEVEL_DEBUG, "x" << touch());
    TRACE_ID(Trace::LEVEL_DEBUG, touch(), "x");
    TRACE_MASKED(Trace::LEVEL_DEBUG, (touch(), Trace::TRACE_MASK_TRACING), (touch(), "N"),
                 "x" << touch());
    EXPECT_EQ(evaluated, 0);
}

TEST_F(ATraceMessage, LooksAtItsMaskOnlyWhenItsLevelHasPassed) {
    int message = 0;
    int mask = 0;
    const auto look = [&] { return ++mask, Trace::TRACE_MASK_TRACING; };
    configure(4, {0xFFFFFFFF});
    TRACE_MASKED(Trace::LEVEL_DEBUG, look(), "N", "x" << ++message);
    EXPECT_EQ(mask, 0);
    configure(5, {Trace::TRACE_MASK_DISPATCHER});
    TRACE_MASKED(Trace::LEVEL_DEBUG, look(), "N", "x" << ++message);
    EXPECT_EQ(mask, 1);
    EXPECT_EQ(message, 0);
    configure(5, {Trace::TRACE_MASK_TRACING});
    const StdoutCapture output;
    TRACE_MASKED(Trace::LEVEL_DEBUG, look(), "N", "x" << ++message);
    EXPECT_EQ(messageOf(output), " x1");
}

struct MaskCase {
    Trace::MaskWords::Words words;
    std::uint32_t mask;
    bool enabled;
};

TEST_F(ATraceMessage, IsEnabledByAWordThatSharesAGroupBitAndASubsystemBit) {
    const MaskCase cases[] = {
        {{}, 0x80002, false},
        {{0x80002}, 0x80002, true},
        {{0xF000F}, 0x80002, true},
        {{0xFFFFFFFF}, 0x80002, true},
        {{0x80004}, 0x80002, false},
        {{0x00002}, 0x80002, false},
        {{0x80000}, 0x80002, false},
        {{0x40002}, 0x80002, false},
        {{0x80000, 0x00002}, 0x80002, false}, // one word must have both
        {{0x80004, 0x80002}, 0x80002, true},
        {{0x80002, 0x80004}, 0x80002, true},
        {{0x80002}, 0x80004, false},
        {{0xFFF00000}, 0xFFF00001, false}, // bits above the group name nothing
        {{0xFFFFFFFF}, 0x00002, false},
        {{0xFFFFFFFF}, 0x80000, false},
        {{0}, 0xFFFFFFFF, false},
    };
    for (const MaskCase& one : cases) {
        configure(6, one.words);
        EXPECT_EQ(Log::isMaskEnabled(one.mask), one.enabled)
            << testing::PrintToString(one.words) << " " << one.mask;
    }
}

TEST_F(ATraceMessage, IsWrittenWholeOnceTheOutputLockIsFree) {
    const StdoutCapture output;
    std::unique_lock<std::mutex> lock(Log::s_logMutex);
    auto written = std::async(std::launch::async, [] { lineOf(4) << "text"; });
    // A line that does not wait is written long before this.
    EXPECT_EQ(written.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_EQ(output.text(), "");
    lock.unlock();
    written.get();
    EXPECT_EQ(messageOf(output), " text");
}

TEST_F(ATraceMessage, OfManyThreadsIsNeverMixedWithAnother) {
    constexpr int THREADS = 8;
    constexpr int LINES = 1000;
    Log::s_disableColors = true;
    const StdoutCapture output;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([thread] {
            nameThread("writer" + std::to_string(thread));
            for (int line = 0; line < LINES; ++line) {
                Log(4, "file.cpp", thread, 0) << "line" << line << std::string(50, 'x');
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::string text = output.text();
    std::vector<int> next(THREADS, 0);
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        const std::string line = text.substr(begin, end - begin);
        const int thread = std::stoi(line.substr(line.rfind(':') + 1));
        ASSERT_TRUE(thread >= 0 && thread < THREADS) << line;
        ASSERT_EQ(line, prefix("writer" + std::to_string(thread)) + "   INFO:\t| line" +
                            std::to_string(next[static_cast<std::size_t>(thread)]++) + " " +
                            std::string(50, 'x') + "| file.cpp:" + std::to_string(thread));
    }
    EXPECT_THAT(next, testing::Each(LINES));
}

} // namespace
