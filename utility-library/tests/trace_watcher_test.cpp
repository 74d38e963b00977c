#include "support/scratch_file.h"
#include "support/stdout_capture.h"
#include "support/trace_fixture.h"
#include "support/trace_text.h"
#include "support/waiting.h"

#include "tracing.h"

#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using Trace::Log;
using Clock = std::chrono::steady_clock;
using Words = Trace::MaskWords::Words;

const char* const VERBOSE_TRACING = "bootlume 6 80004 0\n";

std::atomic<int> s_polls{0};
std::atomic<int> s_pollsToFail{0};
std::atomic<bool> s_isTerminal{false};

/// Waits until the watcher has polled anew so often: it has then seen what was done before.
bool polledAnew(int count) {
    return eventually([wanted = s_polls + count] { return s_polls >= wanted; });
}

std::string watcherLine(const std::string& text, const std::string& file = "trace_config") {
    return prefix("trace_config") + "VERBOSE:TRACING\t| " + text + "| utility-library/src/" + file +
           ".cpp:";
}

class ATraceWatcher : public TraceFixture {
protected:
    ATraceWatcher() : m_path(Log::s_configFilePath) { Log::s_configFilePath = file.path(); }
    ~ATraceWatcher() override {
        end();
        Log::s_configFilePath = m_path;
        s_isTerminal = false;
    }
    ATraceWatcher(const ATraceWatcher&) = delete;
    ATraceWatcher& operator=(const ATraceWatcher&) = delete;

    /// Names the program; its watcher waits.
    static void start(const std::string& name = "bootlume") {
        Log::isAlive::s_alive = true;
        Log::setAppName(name);
        ASSERT_TRUE(polledAnew(2));
    }
    /// As at the end of the process.
    static void end() { const Trace::Initializer last; }

    static Words masks() { return *Log::s_configuration.masks.get(); }
    static bool reaches(std::int32_t level) {
        return eventually([level] { return Log::level() == level; });
    }
    std::vector<std::string> lines() const { return linesOf(withoutLineNumbers(output->text())); }

    ScratchFile file;
    std::unique_ptr<StdoutCapture> output = std::make_unique<StdoutCapture>();

private:
    std::string m_path;
};

TEST_F(ATraceWatcher, BeginsWithTheConfigurationThatIsThereAndWithTheSystemLog) {
    file.write("bootlume 5 80002,4 0\n");
    start("BootLume");
    EXPECT_EQ(Log::s_configuration.appName, "bootlume");
    EXPECT_EQ(Log::level(), 5);
    EXPECT_FALSE(Log::s_configuration.toSyslog);
    EXPECT_THAT(masks(), ElementsAre(0x80002U, 4U));
    EXPECT_THAT(takeSyslogCalls(), ElementsAre(SyslogCall{"closelog", 0, 0, ""},
                                               SyslogCall{"openlog", 11, 136, "BootLume"}));
}

TEST_F(ATraceWatcher, ReadsAFileThatIsWrittenThoughNothingChanges) {
    file.write(VERBOSE_TRACING);
    start();
    EXPECT_THAT(lines(), ElementsAre(watcherLine("start trace config thread", "trace_watcher")));
    file.write(VERBOSE_TRACING);
    EXPECT_TRUE(
        eventually([this] { return output->text().find("set syslog") != std::string::npos; }));
    end();
    EXPECT_THAT(lines(),
                testing::IsSupersetOf(
                    {watcherLine("some changes"), watcherLine("found entry, appName = bootlume"),
                     watcherLine("set level, level = 6"), watcherLine("set mask, masks = 524292"),
                     watcherLine("set syslog, toSyslog = 0")}));
}

TEST_F(ATraceWatcher, TurnsTheSystemLogOnAndOff) {
    file.write("bootlume 4 0 0\n");
    start();
    takeSyslogCalls();
    for (const bool on : {true, false}) {
        file.write(on ? "bootlume 5 0 1\n" : "bootlume 4 0 0\n");
        EXPECT_TRUE(reaches(on ? 5 : 4) && polledAnew(1)); // the switch follows the level
        TRACE(Trace::LEVEL_INFO, (on ? "logged" : "printed"));
    }
    const auto calls = takeSyslogCalls();
    ASSERT_THAT(calls, testing::SizeIs(1));
    EXPECT_THAT(calls[0].text, HasSubstr("|  logged"));
    EXPECT_THAT(output->text(),
                testing::AllOf(HasSubstr("| printed|"), testing::Not(HasSubstr("logged"))));
}

TEST_F(ATraceWatcher, NeverWatchesAFileThatWasNotThereAtTheStart) {
    start();
    file.write("bootlume 6 80002 0\n");
    EXPECT_TRUE(polledAnew(3));
    file.write("bootlume 6 80004 0\n");
    EXPECT_TRUE(polledAnew(3));
    EXPECT_EQ(Log::level(), 4);
    EXPECT_THAT(masks(), testing::IsEmpty());
}

/// What is done to the file while it is watched, of which nothing must come.
struct Spoiling {
    const char* name;
    void (*spoil)(const ScratchFile&);
};

class AWatchedFile : public ATraceWatcher, public testing::WithParamInterface<Spoiling> {};

TEST_P(AWatchedFile, KeepsItsConfiguration) {
    file.write("bootlume 6 80004 0\n");
    start();
    GetParam().spoil(file);
    EXPECT_TRUE(polledAnew(3));
    EXPECT_EQ(Log::level(), 6);
    EXPECT_FALSE(Log::s_configuration.toSyslog);
    EXPECT_THAT(masks(), ElementsAre(0x80004U));
}

INSTANTIATE_TEST_SUITE_P(
    , AWatchedFile,
    testing::Values(
        Spoiling{"ThatIsRemoved", [](const ScratchFile& file) { unlink(file.path().c_str()); }},
        Spoiling{"ThatIsReplacedByAnotherAndThatWritten",
                 [](const ScratchFile& file) {
                     file.replace("bootlume 5 0 1\n");
                     EXPECT_TRUE(polledAnew(3));
                     file.write("bootlume 5 0 1\n");
                 }},
        Spoiling{"ThatIsEmptied", [](const ScratchFile& file) { file.write(""); }},
        Spoiling{"ThatIsLeftToOthers",
                 [](const ScratchFile& file) { file.write("other 1 0 1\n"); }},
        Spoiling{"ThatIsCutOff", [](const ScratchFile& file) { file.write("bootlume 1 0\n"); }}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(ATraceWatcher, KeepsItsConfigurationWhereTheFileMayNoLongerBeRead) {
    file.write(VERBOSE_TRACING);
    start();
    const uid_t user = geteuid();
    ASSERT_EQ(chmod(file.path().c_str(), 0200), 0);
    if (user == 0) {
        ASSERT_EQ(chown(file.path().c_str(), 65534, 65534), 0);
        ASSERT_EQ(seteuid(65534), 0); // root may read everything
    }
    std::ofstream(file.path()) << "bootlume 1 0 1\n";
    EXPECT_TRUE(polledAnew(3));
    if (user == 0) {
        ASSERT_EQ(seteuid(user), 0);
    }
    EXPECT_EQ(Log::level(), 6);
    EXPECT_THAT(lines(), testing::Contains(watcherLine("some changes")));
}

TEST_F(ATraceWatcher, TellsOfAPollThatFailsBreathesAndGoesOn) {
    file.write("bootlume 4 0 0\n");
    start();
    const auto begin = Clock::now();
    s_pollsToFail = 100;
    EXPECT_TRUE(eventually([] { return s_pollsToFail <= 0; }));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(99)) << "a millisecond between two";
    file.write("bootlume 5 0 0\n");
    EXPECT_TRUE(reaches(5));
    end();
    EXPECT_EQ(lines(), std::vector<std::string>(100, prefix("trace_config") +
                                                         "  ERROR:\t|poll failed: Input/output "
                                                         "error| utility-library/src/"
                                                         "trace_watcher.cpp:"));
}

TEST_F(ATraceWatcher, TurnsColoursOffUnlessStandardOutputIsATerminal) {
    for (const bool terminal : {true, false}) {
        s_isTerminal = terminal;
        start();
        EXPECT_EQ(Log::s_disableColors, !terminal);
        end();
    }
}

TEST_F(ATraceWatcher, IsJoinedAtTheEndOfTheProcessAndClosesTheSystemLog) {
    start();
    takeSyslogCalls();
    end();
    EXPECT_EQ(Log::s_traceConfigThread, nullptr);
    EXPECT_EQ(Log::s_name, nullptr);
    EXPECT_FALSE(Log::isAlive::s_alive);
    EXPECT_THAT(takeSyslogCalls(), ElementsAre(SyslogCall{"closelog", 0, 0, ""}));
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
    start();
    std::atomic<bool> storming{true};
    std::vector<std::thread> writers;
    for (int number = 0; number < 4; ++number) {
        writers.emplace_back([&storming] {
            const timespec pace{0, 200'000}; // a few thousand lines a second are enough
            while (storming) {
                TRACE_MASKED(Trace::LEVEL_VERBOSE, Trace::TRACE_MASK_DISPATCHER, "DISPATCHER",
                             "storm" << Trace::named("level", Log::level()));
                nanosleep(&pace, nullptr);
            }
        });
    }
    for (std::size_t round = 0; round < 1000; ++round) {
        file.write(texts[round % std::size(texts)]);
        EXPECT_TRUE(round % 100 != 0 || polledAnew(1));
    }
    file.write("bootlume 3 80002 0\n");
    EXPECT_TRUE(reaches(3));
    storming = false;
    for (std::thread& writer : writers) {
        writer.join();
    }
    std::size_t storms = 0;
    for (const std::string& line : lines()) {
        const bool storm = line.find("storm, level = ") != std::string::npos;
        storms += storm;
        ASSERT_THAT(line,
                    testing::EndsWith(storm ? "trace_watcher_test.cpp:" : "src/trace_config.cpp:"));
    }
    EXPECT_GT(storms, 0U);
}

} // namespace

// These stand in front of the system's.
extern "C" {
int poll(struct pollfd* waits, nfds_t count, int timeout) {
    ++s_polls;
    if (s_pollsToFail > 0) {
        --s_pollsToFail;
        errno = EIO;
        return -1;
    }
    const timespec time{timeout / 1000, (timeout % 1000) * 1'000'000L};
    return static_cast<int>(syscall(SYS_ppoll, waits, count, &time, nullptr, 0));
}

int isatty(int descriptor) noexcept {
    return descriptor == STDOUT_FILENO && s_isTerminal ? 1 : 0;
}
}
