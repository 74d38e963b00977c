#include "support/emulation.h"
#include "support/report.h"
#include "support/runner.h"

#include "tracing.h"

#include <gmock/gmock.h>

#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <thread>

using testing::Contains;
using testing::ElementsAre;

namespace {

/// The most memory that the process has had at once so far, in bytes.
long peakMemory() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss * 1024;
}

class TheOutput : public RunnerTest {
protected:
    std::string script(const std::string& text) const {
        return m_folder.write("script", "#!/bin/sh\n" + text + "\n");
    }

    /// The lines of one stream, without the program's path.
    std::vector<std::string> stream(const std::string& program, const std::string& name) const {
        const std::string prefix = program + ": " + name + ": ";
        std::vector<std::string> found;
        for (const std::string& text : texts()) {
            if (text.compare(0, prefix.size(), prefix) == 0) {
                found.push_back(text.substr(prefix.size()));
            }
        }
        return found;
    }
};

TEST_F(TheOutput, IsLoggedBetweenTheStartAndTheEnd) {
    const std::string program = script("echo $1; echo problem >&2; exit 3");
    EXPECT_EQ(run({program, "two words", "b"}), 3);
    const std::string pid = std::to_string(startedChild());
    EXPECT_THAT(texts(),
                ElementsAre("Function: start", "start command: " + program + " two words b ",
                            "command started: , m_childPid = " + pid,
                            program + ": stdout: two words", program + ": stderr: problem",
                            "child exited: " + program + ", m_result = 3", "Function: sendResult"));
    const std::vector<LogLine> all = lines();
    for (std::size_t i = 1; i + 1 < all.size(); ++i) {
        EXPECT_EQ(all[i].thread, "generator");
    }
    for (const LogLine& line : all) {
        EXPECT_EQ(line.level, "DEBUG:");
    }
}

TEST_F(TheOutput, MayEndWithoutANewline) {
    const std::string program = script("printf 'one\\ntwo'; printf 'three' >&2");
    EXPECT_EQ(run({program}), 0);
    EXPECT_THAT(stream(program, "stdout"), ElementsAre("one", "two"));
    EXPECT_THAT(stream(program, "stderr"), ElementsAre("three"));
}

TEST_F(TheOutput, KeepsEmptyLinesAndZeroBytes) {
    const std::string program = script("printf 'a\\000b\\n\\n\\000\\n'");
    EXPECT_EQ(run({program}), 0);
    EXPECT_THAT(stream(program, "stdout"),
                ElementsAre(std::string("a\0b", 3), "", std::string("\0", 1)));
}

TEST_F(TheOutput, MayHaveLinesOfAMegabyte) {
    const std::string program =
        script("for i in 1 2 3; do head -c 1048576 /dev/zero | tr '\\000' $i; echo; done");
    EXPECT_EQ(run({program}), 0);
    EXPECT_THAT(stream(program, "stdout"),
                ElementsAre(std::string(1 << 20, '1'), std::string(1 << 20, '2'),
                            std::string(1 << 20, '3')));
}

TEST_F(TheOutput, ComesInPiecesOfAMegabyteWithoutNewlines) {
    const std::string program =
        script("head -c 2097152 /dev/zero; echo; head -c 2097155 /dev/zero; echo; echo end");
    EXPECT_EQ(run({program}), 0);
    const std::string piece(1 << 20, '\0');
    EXPECT_THAT(stream(program, "stdout"),
                ElementsAre(piece, piece, piece, piece, std::string(3, '\0'), "end"));
}

TEST_F(TheOutput, CostsBoundedMemoryHoweverMuchComesWithoutANewline) {
    isolated([&] {
        const std::string program = script("head -c 25165824 /dev/zero");
        Trace::Log::s_configuration.level = Trace::LEVEL_INFO; // what is logged is not the matter
        const long before = peakMemory();
        EXPECT_EQ(run({program}), 0);
        EXPECT_LT(peakMemory() - before, 16 << 20);
    });
}

TEST_F(TheOutput, IsCompleteAndInOrder) {
    const std::string program = script("exec seq 100000");
    EXPECT_EQ(run({program}), 0);
    const std::vector<std::string> found = stream(program, "stdout");
    ASSERT_EQ(found.size(), 100000U);
    for (std::size_t i = 0; i < found.size(); ++i) {
        ASSERT_EQ(found[i], std::to_string(i + 1));
    }
}

TEST_F(TheOutput, IsReadToItsEndBeforeTheErrorsAre) {
    const std::string program = script("echo first >&2; echo second; echo third >&2; echo fourth");
    EXPECT_EQ(run({program}), 0);
    std::vector<std::string> order;
    for (const std::string& text : texts()) {
        if (text.find(": std") != std::string::npos) {
            order.push_back(text.substr(text.rfind(' ') + 1));
        }
    }
    EXPECT_THAT(order, ElementsAre("second", "fourth", "first", "third"));
}

TEST_F(TheOutput, LeavesAChildStalledThatFillsItsErrorStreamFirst) {
    const std::string program = script("echo ready; exec head -c 1000000 /dev/zero 3>&1 >&2");
    brem::Process process(&m_dispatcher, {program}, false);
    std::thread stopper([&] {
        EXPECT_TRUE(eventually([&] { return startedChild() != 0; }));
        const std::string child = "/proc/" + std::to_string(startedChild());
        // It keeps standard output open and never waits for its input: once asleep, it waits for
        // room to write to.
        EXPECT_TRUE(eventually([&] {
            return contentsOf(child + "/comm") == "head\n" &&
                   contentsOf(child + "/status").find("State:\tS") != std::string::npos;
        }));
        process.stop();
    });
    EXPECT_EQ(run(process), -1);
    stopper.join();
}

TEST_F(TheOutput, IsNoneWhereTheChildIsDetached) {
    SKIP_UNDER_EMULATION("the emulator opens the standard descriptors that a program lacks");
    const ReportFolder folder;
    brem::Process process(&m_dispatcher, folder.arguments({"exit:5"}), true);
    EXPECT_EQ(run(process), 5);
    const Report report = folder.report();
    EXPECT_TRUE(report.descriptors().empty());
    EXPECT_EQ(report.one("session"), report.one("pid"));
    EXPECT_NE(report.one("session"), "");
    EXPECT_EQ(report.one("uid"), std::to_string(getuid()));
    EXPECT_EQ(report.one("egid"), std::to_string(getegid()));
    EXPECT_THAT(texts(), ElementsAre("Function: start",
                                     "start command: " + folder.program() + " " +
                                         folder.reportFile() + " exit:5 ",
                                     "command started: , m_childPid = " + report.one("pid"),
                                     "child exited: " + folder.program() + ", m_result = 5",
                                     "Function: sendResult"));
    EXPECT_FALSE(hasChild());
}

TEST_F(TheOutput, OfAnAttachedChildHasTwoPipesAndNoInput) {
    SKIP_UNDER_EMULATION("the emulator opens the standard descriptors that a program lacks");
    const ReportFolder folder;
    setenv("RUNNER_TEST", "a=b", 1);
    EXPECT_EQ(run(folder.arguments()), 0);
    unsetenv("RUNNER_TEST");
    const Report report = folder.report();
    const auto descriptors = report.descriptors();
    ASSERT_EQ(descriptors.size(), 2U);
    EXPECT_EQ(descriptors.at(1).substr(0, 5), "pipe:");
    EXPECT_EQ(descriptors.at(2).substr(0, 5), "pipe:");
    EXPECT_NE(descriptors.at(1), descriptors.at(2));
    EXPECT_EQ(report.one("session"), std::to_string(getsid(0)));
    EXPECT_THAT(report.all("variable"), Contains("RUNNER_TEST=a=b"));
}

} // namespace
