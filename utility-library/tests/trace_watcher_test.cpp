#include "support/scratch_file.h"
#include "support/trace_probe.h"
#include "support/trace_text.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Clock = std::chrono::steady_clock;

const char* const VERBOSE_TRACING = "bootlume 6 80004 0\n";

template <class Number>
Number medianOf(std::vector<Number> numbers) {
    std::sort(numbers.begin(), numbers.end());
    return numbers[numbers.size() / 2];
}

/// The lines of an output, from the thread's name on and without the numbers of source lines.
std::vector<std::string> tracesOf(const std::string& output) {
    std::vector<std::string> traces;
    for (const std::string& line : linesOf(output)) {
        const std::string trace = withoutTimeAndProcess(withoutLineNumber(line));
        traces.push_back(trace.empty() ? "no trace line: " + line : trace);
    }
    return traces;
}

std::string watcherLine(const std::string& text, const std::string& file = "trace_config") {
    return "(    trace_config) VERBOSE:TRACING\t| " + text + "| utility-library/src/" + file +
           ".cpp:";
}

class ATraceWatcher : public testing::Test {
protected:
    /// A program that has been named and whose watcher waits.
    void start(TraceProbe& probe) {
        ASSERT_EQ(probe.ask("name bootlume"), "ok");
        ASSERT_EQ(probe.ask("await-polls 2"), "ok");
    }

    ScratchFile file;
};

TEST_F(ATraceWatcher, BeginsWithTheConfigurationThatIsThere) {
    file.write("bootlume 5 80002,4 0\n");
    TraceProbe probe(file.path());
    EXPECT_EQ(probe.ask("state"), "ok  4 0");
    EXPECT_EQ(probe.ask("name BootLume"), "ok");
    EXPECT_EQ(probe.ask("state"), "ok bootlume 5 0 80002 4");
    EXPECT_EQ(probe.end(), 0);
}

TEST_F(ATraceWatcher, FollowsTheOpeningOfTheSystemLogUnderTheNameAsGiven) {
    TraceProbe probe(file.path());
    start(probe);
    EXPECT_THAT(probe.events(), ElementsAre("closelog", "openlog bootlume 11 136"));
    EXPECT_EQ(probe.end(), 0);

    TraceProbe capitals(file.path());
    EXPECT_EQ(capitals.ask("name BootLume"), "ok");
    EXPECT_THAT(capitals.events(), ElementsAre("closelog", "openlog BootLume 11 136"));
}

TEST_F(ATraceWatcher, TellsThatItStarts) {
    file.write(VERBOSE_TRACING);
    TraceProbe probe(file.path());
    start(probe);
    EXPECT_EQ(probe.end(), 0);
    EXPECT_THAT(tracesOf(probe.output()),
                ElementsAre(watcherLine("start trace config thread", "trace_watcher")));
}

TEST_F(ATraceWatcher, ReadsAFileThatIsWrittenThoughNothingChanges) {
    file.write(VERBOSE_TRACING);
    TraceProbe probe(file.path());
    start(probe);
    file.write(VERBOSE_TRACING);
    probe.awaitOutput("set syslog");
    EXPECT_EQ(probe.end(), 0);
    EXPECT_THAT(tracesOf(probe.output()),
                testing::IsSupersetOf(
                    {watcherLine("some changes"), watcherLine("found entry, appName = bootlume"),
                     watcherLine("set level, level = 6"), watcherLine("set mask, masks = 524292"),
                     watcherLine("set syslog, toSyslog = 0")}));
}

TEST_F(ATraceWatcher, AppliesAChangeWithin200Milliseconds) {
    file.write("bootlume 6 0 0\n");
    TraceProbe probe(file.path());
    start(probe);
    std::vector<double> times;
    for (int round = 0; round < 20; ++round) {
        const std::string level = round % 2 == 0 ? "5" : "6";
        const auto begin = Clock::now();
        file.write("bootlume " + level + " 0 0\n");
        ASSERT_EQ(probe.ask("await-level " + level), "ok");
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
    }
    std::printf("a change applies after %.2f ms (median of 20)\n", medianOf(times));
    EXPECT_LT(medianOf(times), 200);
    EXPECT_EQ(probe.end(), 0);
}

TEST_F(ATraceWatcher, TurnsTheSystemLogOnAndOff) {
    file.write("bootlume 4 0 0\n");
    TraceProbe probe(file.path());
    start(probe);
    file.write("bootlume 5 0 1\n");
    ASSERT_EQ(probe.ask("await-level 5"), "ok");
    ASSERT_EQ(probe.ask("await-polls 1"), "ok"); // the switch follows the level
    EXPECT_EQ(probe.ask("line 4 logged"), "ok");
    file.write("bootlume 4 0 0\n");
    ASSERT_EQ(probe.ask("await-level 4"), "ok");
    ASSERT_EQ(probe.ask("await-polls 1"), "ok");
    EXPECT_EQ(probe.ask("line 4 printed"), "ok");
    EXPECT_EQ(probe.end(), 0);
    EXPECT_THAT(probe.events(),
                testing::Contains(
                    testing::AllOf(testing::StartsWith("syslog 6 INFO|"), HasSubstr("|  logged"))));
    EXPECT_THAT(probe.output(), HasSubstr("| printed|"));
    EXPECT_THAT(probe.output(), Not(HasSubstr("logged")));
}

TEST_F(ATraceWatcher, NeverWatchesAFileThatWasNotThereAtTheStart) {
    TraceProbe probe(file.path());
    start(probe);
    file.write("bootlume 6 80002 0\n");
    ASSERT_EQ(probe.ask("await-polls 3"), "ok");
    file.write("bootlume 6 80004 0\n");
    ASSERT_EQ(probe.ask("await-polls 3"), "ok");
    EXPECT_EQ(probe.ask("state"), "ok bootlume 4 0");
    EXPECT_EQ(probe.end(), 0);
}

TEST_F(ATraceWatcher, DoesNotSeeAFileThatReplacesItsOwn) {
    file.write("bootlume 5 0 0\n");
    TraceProbe probe(file.path());
    start(probe);
    file.replace("bootlume 6 0 0\n");
    ASSERT_EQ(probe.ask("await-polls 3"), "ok");
    file.write("bootlume 6 0 0\n");
    ASSERT_EQ(probe.ask("await-polls 3"), "ok");
    EXPECT_EQ(probe.ask("state"), "ok bootlume 5 0 0");
    EXPECT_EQ(probe.end(), 0);
}

TEST_F(ATraceWatcher, KeepsTheConfigurationOfAFileThatIsRemoved) {
    file.write("bootlume 5 0 0\n");
    TraceProbe probe(file.path());
    start(probe);
    unlink(file.path().c_str());
    ASSERT_EQ(probe.ask("await-polls 3"), "ok");
    EXPECT_EQ(probe.ask("state"), "ok bootlume 5 0 0");
    EXPECT_EQ(probe.end(), 0);
}

TEST_F(ATraceWatcher, KeepsItsConfigurationWhereAChangeLeavesNoEntry) {
    file.write("bootlume 6 80004 0\n");
    TraceProbe probe(file.path());
    start(probe);
    for (const char* const text : {"", "other 1 0 1\n", "bootlume 1 0\n", "bootl"}) {
        file.write(text);
        ASSERT_EQ(probe.ask("await-polls 3"), "ok");
        EXPECT_EQ(probe.ask("state"), "ok bootlume 6 0 80004") << text;
    }
    EXPECT_EQ(probe.end(), 0);
    EXPECT_THAT(tracesOf(probe.output()), testing::Contains(watcherLine("some changes")));
}

TEST_F(ATraceWatcher, GoesOnBehindALineThatCannotBeConverted) {
    file.write("bootlume 4 0 0\n");
    TraceProbe probe(file.path());
    start(probe);
    file.write("bootlume 6 nonsense 0\nbootlume 5 0 0\n");
    ASSERT_EQ(probe.ask("await-level 5"), "ok");
    file.write("bootlume 3 0 0\n");
    ASSERT_EQ(probe.ask("await-level 3"), "ok");
    EXPECT_EQ(probe.end(), 0);
    EXPECT_THAT(tracesOf(probe.output()),
                testing::Contains("(    trace_config)   ERROR:\t| no entry in " + file.path() +
                                  ": bootlume 6 nonsense 0: stoul| "
                                  "utility-library/src/trace_config.cpp:"));
}

TEST_F(ATraceWatcher, TellsOfAPollThatFailsAndGoesOn) {
    file.write("bootlume 4 0 0\n");
    TraceProbe probe(file.path());
    start(probe);
    ASSERT_EQ(probe.ask("fail-polls 2"), "ok");
    file.write("bootlume 5 0 0\n");
    ASSERT_EQ(probe.ask("await-level 5"), "ok");
    EXPECT_EQ(probe.end(), 0);
    const std::string line = "(    trace_config)   ERROR:\t|poll failed: Input/output error| "
                             "utility-library/src/trace_watcher.cpp:";
    EXPECT_THAT(tracesOf(probe.output()), ElementsAre(line, line));
}

TEST_F(ATraceWatcher, BreathesWhileItsPollFails) {
    TraceProbe probe(file.path());
    start(probe);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(probe.ask("fail-polls 500"), "ok");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(495))
        << "about a millisecond between two";
    EXPECT_EQ(probe.end(), 0);
}

TEST_F(ATraceWatcher, KeepsItsConfigurationWhereTheFileMayNoLongerBeRead) {
    file.write(VERBOSE_TRACING);
    TraceProbe probe(file.path());
    start(probe);
    ASSERT_EQ(probe.ask("user"), "ok");
    ASSERT_EQ(chmod(file.path().c_str(), 0200), 0);
    file.write("bootlume 1 0 1\n");
    probe.awaitOutput("some changes");
    ASSERT_EQ(probe.ask("await-polls 2"), "ok");
    EXPECT_EQ(probe.ask("state"), "ok bootlume 6 0 80004");
    EXPECT_EQ(probe.end(), 0);
}

TEST_F(ATraceWatcher, TurnsColoursOffWhereStandardOutputIsNoTerminal) {
    TraceProbe probe(file.path());
    ASSERT_EQ(probe.ask("line 3 before"), "ok");
    start(probe);
    ASSERT_EQ(probe.ask("line 3 after"), "ok");
    EXPECT_EQ(probe.end(), 0);
    const std::vector<std::string> lines = linesOf(probe.output());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0], testing::AllOf(testing::StartsWith("\033[1;33m["), HasSubstr("before"),
                                         testing::EndsWith("\033[0;39;49m")));
    EXPECT_THAT(lines[1], testing::AllOf(testing::StartsWith("["), HasSubstr("after"),
                                         Not(HasSubstr("\033"))));
}

TEST_F(ATraceWatcher, LeavesColoursOnWhereStandardOutputIsATerminal) {
    TraceProbe probe(file.path(), TraceProbe::Output::TERMINAL);
    start(probe);
    ASSERT_EQ(probe.ask("line 3 loud"), "ok");
    ASSERT_EQ(probe.ask("line 4 quiet"), "ok");
    EXPECT_EQ(probe.end(), 0);
    const std::vector<std::string> lines = linesOf(probe.output());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0], testing::AllOf(testing::StartsWith("\033[1;33m["), HasSubstr("loud"),
                                         testing::EndsWith("\033[0;39;49m\r")));
    EXPECT_THAT(lines[1], testing::AllOf(testing::StartsWith("["), HasSubstr("quiet"),
                                         Not(HasSubstr("\033"))));
}

TEST_F(ATraceWatcher, IsJoinedAtTheEndOfTheProcessAndClosesTheSystemLog) {
    TraceProbe probe(file.path());
    start(probe);
    EXPECT_EQ(probe.end(), 0);
    EXPECT_THAT(probe.events(),
                ElementsAre("closelog", "openlog bootlume 11 136", "closelog", "join",
                            testing::StartsWith("end alive=0 watcher=0 name=0 freed=1 us=")));
}

TEST_F(ATraceWatcher, IsNoneWhereTheProgramHasNoName) {
    TraceProbe nameless(file.path());
    EXPECT_EQ(nameless.ask("state"), "ok  4 0");
    EXPECT_EQ(nameless.end(), 0);
    EXPECT_THAT(nameless.events(),
                ElementsAre(testing::StartsWith("end alive=0 watcher=0 name=0 freed=1 us=")));

    TraceProbe empty(file.path());
    EXPECT_EQ(empty.ask("name"), "ok");
    EXPECT_EQ(empty.end(), 0);
    EXPECT_THAT(empty.events(),
                ElementsAre("closelog", "openlog  11 136",
                            testing::StartsWith("end alive=0 watcher=0 name=0 freed=1 us=")));
}

TEST_F(ATraceWatcher, DoesNotHoldUpTheEndOfTheProcess) {
    std::vector<int> times;
    for (int round = 0; round < 20; ++round) {
        TraceProbe probe(file.path());
        start(probe);
        ASSERT_EQ(probe.end(), 0);
        const std::string& end = probe.events().back();
        times.push_back(std::stoi(end.substr(end.rfind('=') + 1)));
    }
    std::printf("the trace ends within %.2f ms (median of 20)\n", medianOf(times) / 1000.0);
    EXPECT_LT(medianOf(times), 20'000) << "the poll period is 100 ms";
}

TEST_F(ATraceWatcher, TakesAThousandRewritesWhileFourThreadsTrace) {
    const char* const texts[] = {"bootlume 6 80002 0\n",
                                 "bootlume 5 80004 0\n",
                                 "bootlume 6 80002,80004,1,2,3,4,5,6,7,8,9 0\n",
                                 "bootlume 6 ffffffff 1\n",
                                 "bootlume 6 nonsense 0\nbootlume 6 80002 0\n",
                                 "bootlume 6 800",
                                 ""};
    file.write(texts[0]);
    TraceProbe probe(file.path());
    start(probe);
    ASSERT_EQ(probe.ask("storm 4"), "ok");
    for (std::size_t round = 0; round < 1000; ++round) {
        file.write(texts[round % std::size(texts)]);
        if (round % 100 == 0) {
            ASSERT_EQ(probe.ask("await-polls 1"), "ok");
        }
    }
    file.write("bootlume 3 80002 0\n");
    ASSERT_EQ(probe.ask("await-level 3"), "ok");
    ASSERT_EQ(probe.ask("calm"), "ok");
    EXPECT_EQ(probe.end(), 0);

    std::size_t storms = 0;
    for (const std::string& line : tracesOf(probe.output())) {
        const bool storm = line.find("storm, level = ") != std::string::npos;
        storms += storm;
        ASSERT_THAT(line, testing::EndsWith(storm ? "support/trace_probe_main.cpp:"
                                                  : "src/trace_config.cpp:"));
    }
    std::printf("%zu lines while the file was rewritten\n", storms);
    EXPECT_GT(storms, 0U);
}

} // namespace
