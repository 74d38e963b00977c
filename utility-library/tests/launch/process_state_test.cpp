#include "support/emulation.h"
#include "support/report.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <new>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace process = boost::process;
using process::stream_behavior;

namespace {

/// Leaves a file behind where it is destroyed at the end of a process.
struct Witness {
    ~Witness() {
        if (path[0] != '\0') {
            close(open(path, O_WRONLY | O_CREAT, 0666));
        }
    }
    char path[512] = "";
};
Witness witness;

pid_t parent = 0;
std::atomic<int>* foreignRuns = nullptr; ///< shared: how often a handler ran in another process
std::atomic<int> ownRuns{0};

void countRun(int /*signal*/) {
    ++(getpid() == parent ? ownRuns : *foreignRuns);
}

std::set<std::string> valuesOf(const Report& report, const std::string& word) {
    const std::vector<std::string> values = report.all(word);
    return {values.begin(), values.end()};
}

TEST(AChild, IgnoresABrokenPipeAndHasDefaultHandlersElse) {
    isolated([] {
        const ReportFolder folder;
        for (int number = 1; number < SIGRTMAX; ++number) {
            signal(number, number % 2 == 0 ? SIG_IGN : countRun);
        }
        signal(SIGCHLD, SIG_DFL);
        ASSERT_EQ(folder.run(process::posix_context()), 0);
        EXPECT_EQ(folder.report().all("handler"),
                  (std::vector<std::string>{std::to_string(SIGPIPE)}));
    });
}

TEST(AChild, HasTheCallersSignalMask) {
    isolated([] {
        const ReportFolder folder;
        sigset_t mask;
        sigemptyset(&mask);
        for (const int number : {SIGHUP, SIGTERM, SIGUSR2, 40}) {
            sigaddset(&mask, number);
        }
        ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &mask, nullptr), 0);
        ASSERT_EQ(folder.run(process::posix_context()), 0);
        EXPECT_EQ(valuesOf(folder.report(), "blocked"),
                  (std::set<std::string>{"1", "12", "15", "40"}));
        sigset_t after;
        pthread_sigmask(SIG_SETMASK, nullptr, &after);
        for (int number = 1; number < NSIG; ++number) {
            EXPECT_EQ(sigismember(&after, number), sigismember(&mask, number)) << number;
        }
    });
}

TEST(AChild, NeverRunsAHandlerOfTheParents) {
    isolated([] {
        void* const shared = mmap(nullptr, sizeof *foreignRuns, PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        ASSERT_NE(shared, MAP_FAILED);
        foreignRuns = new (shared) std::atomic<int>(0);
        parent = getpid();
        ASSERT_EQ(setpgid(0, 0), 0);
        signal(SIGUSR1, countRun);
        std::atomic<bool> storming{true};
        std::thread storm([&] {
            while (storming) {
                kill(0, SIGUSR1); // the whole group: parent and child
                std::this_thread::yield();
            }
        });
        for (int i = 0; i < 100; ++i) {
            process::launch("/bin/true", {"true"}, process::posix_context()).wait();
        }
        storming = false;
        storm.join();
        EXPECT_GT(ownRuns.load(), 0);
        EXPECT_EQ(foreignRuns->load(), 0);
    });
}

TEST(AFailingChild, LeavesTheParentsObjectsAndBuffersAlone) {
    isolated([] {
        const ScratchFolder folder;
        const std::string destroyed = folder.file("destroyed");
        std::strncpy(witness.path, destroyed.c_str(), sizeof witness.path - 1);
        FILE* const file = fopen(folder.file("stdio").c_str(), "w");
        ASSERT_NE(file, nullptr);
        fputs("pending", file);
        std::ofstream stream(folder.file("stream"));
        stream << "pending";
        EXPECT_EQ(process::launch("/missing/program", {"program"}, process::posix_context())
                      .wait()
                      .exit_status(),
                  1);
        EXPECT_NE(access(destroyed.c_str(), F_OK), 0);
        EXPECT_EQ(contentsOf(folder.file("stdio")), "");
        EXPECT_EQ(contentsOf(folder.file("stream")), "");
        fclose(file);
        EXPECT_EQ(contentsOf(folder.file("stdio")), "pending");
        witness.path[0] = '\0';
    });
}

TEST(AChild, IsGivenItsArgumentsEnvironmentAndFolderAsTheyAre) {
    SKIP_UNDER_EMULATION("the emulator sorts the environment anew");
    const ReportFolder folder;
    process::posix_context context;
    context.work_directory = folder.path();
    context.environment = {{"EMPTY", ""}, {"NAME", "a value = with signs"}, {"TEXT", "two words"}};
    ASSERT_EQ(folder.run(context, {"an argument", "", "a=b"}), 0);
    const Report report = folder.report();
    EXPECT_EQ(report.all("argument"), folder.arguments({"an argument", "", "a=b"}));
    EXPECT_EQ(report.all("variable"),
              (std::vector<std::string>{"EMPTY=", "NAME=a value = with signs", "TEXT=two words"}));
    EXPECT_EQ(report.one("cwd"), folder.path());
}

TEST(AContext, BeginsWithNoVariableInTheCurrentFolderAndWithTheCallersIds) {
    const ReportFolder folder;
    ASSERT_EQ(folder.run(process::posix_context()), 0);
    const Report report = folder.report();
    char current[4096];
    ASSERT_NE(getcwd(current, sizeof current), nullptr);
    EXPECT_TRUE(report.all("variable").empty());
    EXPECT_EQ(report.one("cwd"), current);
    EXPECT_EQ(report.one("uid"), std::to_string(getuid()));
    EXPECT_EQ(report.one("euid"), std::to_string(geteuid()));
    EXPECT_EQ(report.one("gid"), std::to_string(getgid()));
    EXPECT_EQ(report.one("egid"), std::to_string(getegid()));
    EXPECT_EQ(report.one("session"), std::to_string(getsid(0)));
}

TEST(TheCurrentEnvironment, IsSplitAtTheFirstEqualsSign) {
    isolated([] {
        std::string entries[] = {"PLAIN=value", "EMPTY=", "SIGNS=a=b=c", "=leading", "nothing"};
        std::vector<char*> block;
        for (std::string& entry : entries) {
            block.push_back(entry.data());
        }
        block.push_back(nullptr);
        environ = block.data();
        EXPECT_EQ(process::current_environment(),
                  (process::environment{
                      {"", "leading"}, {"EMPTY", ""}, {"PLAIN", "value"}, {"SIGNS", "a=b=c"}}));
        environ = nullptr;
        EXPECT_TRUE(process::current_environment().empty());
    });
}

TEST(AChild, LeadsASessionOfItsOwnWhereThatIsAskedFor) {
    const ReportFolder folder;
    process::posix_context context;
    context.new_session = true;
    ASSERT_EQ(folder.run(context), 0);
    EXPECT_EQ(folder.report().one("session"), folder.report().one("pid"));
    EXPECT_NE(folder.report().one("pid"), "");
}

class AChildOfRootWithOtherIds : public testing::TestWithParam<std::tuple<bool, bool>> {};

TEST_P(AChildOfRootWithOtherIds, HasThoseThatWereAskedFor) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may take other ids";
    }
    const auto [realGroup, realUser] = GetParam();
    const ReportFolder folder;
    process::posix_context context;
    context.work_directory = "/"; // the present one may be closed to others
    context.egid = 54321;
    context.euid = 54322;
    context.gid = realGroup ? context.egid : context.gid;
    context.uid = realUser ? context.euid : context.uid;
    ASSERT_EQ(folder.run(context), 0);
    EXPECT_EQ(folder.report().one("gid"), realGroup ? "54321" : std::to_string(getgid()));
    EXPECT_EQ(folder.report().one("egid"), "54321");
    EXPECT_EQ(folder.report().one("uid"), realUser ? "54322" : std::to_string(getuid()));
    EXPECT_EQ(folder.report().one("euid"), "54322");
}

INSTANTIATE_TEST_SUITE_P(RealOnesToo, AChildOfRootWithOtherIds,
                         testing::Combine(testing::Bool(), testing::Bool()));

TEST(AChildOfRoot, RunsBelowAnotherRootFolder) {
    SKIP_UNDER_EMULATION("the emulator opens the standard descriptors that a program lacks");
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may change the root folder";
    }
    const ReportFolder folder;
    process::posix_context context;
    context.chroot = folder.path();
    context.work_directory = "/";
    const process::status status =
        process::launch("/report", {"report", "/report.txt"}, context).wait();
    ASSERT_EQ(status.exit_status(), 0);
    EXPECT_EQ(folder.report().one("cwd"), "/");
    EXPECT_TRUE(folder.report().descriptors().empty());
}

TEST(AStatus, TellsAnExitFromASignal) {
    const process::status exited(3 << 8);
    EXPECT_TRUE(exited.exited());
    EXPECT_EQ(exited.exit_status(), 3);
    EXPECT_EQ(process::status(255 << 8).exit_status(), 255);
    EXPECT_FALSE(process::status(SIGTERM).exited());

    const process::status killed =
        process::launch("/bin/sh", {"sh", "-c", "kill -9 $$"}, process::posix_context()).wait();
    EXPECT_FALSE(killed.exited());
}

} // namespace
