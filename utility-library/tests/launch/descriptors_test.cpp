#include "support/emulation.h"
#include "support/report.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <set>
#include <string>

namespace process = boost::process;
using process::stream_behavior;

namespace {

constexpr long HIGH_LIMIT = 1048576;
long pretendedLimit = 0; ///< what sysconf says of the descriptor limit; 0: the truth

/// The real limit where there is the right to it; else the launch layer is at least told so.
void raiseLimit() {
    rlimit limits{};
    getrlimit(RLIMIT_NOFILE, &limits);
    limits.rlim_cur = HIGH_LIMIT;
    limits.rlim_max = std::max<rlim_t>(limits.rlim_max, HIGH_LIMIT);
    if (setrlimit(RLIMIT_NOFILE, &limits) != 0) {
        pretendedLimit = HIGH_LIMIT;
    }
}

/// Neither in one piece nor in order, and none of them closes at an execve.
void openTwoHundred() {
    for (int i = 0; i < 150; ++i) {
        ASSERT_GE(dup(STDIN_FILENO), 0);
    }
    for (int i = 0; i < 50; ++i) {
        ASSERT_GE(fcntl(STDIN_FILENO, F_DUPFD, 300 + 3 * i), 300);
    }
}

std::set<int> numbersOf(const std::map<int, std::string>& descriptors) {
    std::set<int> numbers;
    for (const auto& descriptor : descriptors) {
        numbers.insert(descriptor.first);
    }
    return numbers;
}

/// Which calls the child may use to find out what to close.
struct Closing {
    const char* name;
    bool byRange;
    bool byFolder;
    bool highLimit;
};

class AChildOfAParentWithManyDescriptors : public testing::TestWithParam<Closing> {};

TEST_P(AChildOfAParentWithManyDescriptors, HasOnlyThoseThatWereSetUp) {
    SKIP_UNDER_EMULATION("the emulator lacks close_range");
    const ReportFolder folder; // out here, where it can be removed: the copy cannot read it
    isolated([&folder] {
        openTwoHundred();
        ASSERT_EQ(fcntl(309, F_SETFD, FD_CLOEXEC), 0); // inherited all the same
        ASSERT_EQ(fcntl(310, F_GETFD), -1);            // inherited, but there is none
        if (GetParam().highLimit) {
            raiseLimit();
        } else {
            limitDescriptors(1024);
        }
        if ((!GetParam().byRange && !refuseSystemCall(SYS_close_range, ENOSYS)) ||
            (!GetParam().byFolder && !refuseSystemCall(SYS_getdents64, EIO))) {
            GTEST_SKIP() << "no system call can be refused here";
        }
        // Where there is a better way, a million calls are none.
        const bool oneByOne = !GetParam().byRange && !GetParam().byFolder;
        ASSERT_TRUE(oneByOne || endAtCloseAbove(1000));
        process::posix_context context;
        context.input_behavior.emplace(0, stream_behavior::silence);
        context.input_behavior.emplace(4, stream_behavior::close);
        context.output_behavior.emplace(2, stream_behavior::inherit);
        context.output_behavior.emplace(5, stream_behavior::capture);
        context.output_behavior.emplace(309, stream_behavior::inherit);
        context.output_behavior.emplace(310, stream_behavior::inherit);
        ASSERT_EQ(folder.run(context), 0);
        EXPECT_EQ(numbersOf(folder.report().descriptors()), (std::set<int>{0, 2, 5, 309}));
    });
}

INSTANTIATE_TEST_SUITE_P(EveryWayToClose, AChildOfAParentWithManyDescriptors,
                         testing::Values(Closing{"ByRange", true, true, false},
                                         Closing{"ByFolder", false, true, false},
                                         Closing{"OneByOne", false, false, false},
                                         Closing{"ByRangeBelowAHighLimit", true, true, true},
                                         Closing{"ByFolderBelowAHighLimit", false, true, true},
                                         Closing{"OneByOneBelowAHighLimit", false, false, true}),
                         [](const auto& each) { return std::string(each.param.name); });

/// Which of the parent's standard descriptors are closed, one bit each.
class AParentWithoutStandardStreams : public testing::TestWithParam<int> {};

void closeTheOnesOfTheTest() {
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        if ((testing::TestWithParam<int>::GetParam() & (1 << descriptor)) != 0) {
            close(descriptor);
        }
    }
}

TEST_P(AParentWithoutStandardStreams, GivesThemToItsChildAllTheSame) {
    isolated([] {
        const ReportFolder folder;
        closeTheOnesOfTheTest();
        EXPECT_EQ(folder.talkThroughPipes(), "");
        EXPECT_EQ(numbersOf(folder.report().descriptors()), (std::set<int>{0, 1, 2}));
    });
}

TEST_P(AParentWithoutStandardStreams, SilencesThemForItsChild) {
    isolated([] {
        const ReportFolder folder;
        closeTheOnesOfTheTest();
        process::basic_context context;
        context.stdin_behavior = stream_behavior::silence;
        context.stdout_behavior = stream_behavior::silence;
        context.stderr_behavior = stream_behavior::redirect_to_stdout;
        ASSERT_EQ(folder.run(context), 0);
        EXPECT_EQ(
            folder.report().descriptors(),
            (std::map<int, std::string>{{0, "/dev/zero"}, {1, "/dev/null"}, {2, "/dev/null"}}));
    });
}

INSTANTIATE_TEST_SUITE_P(EveryCombination, AParentWithoutStandardStreams, testing::Range(0, 8));

/// The open descriptors of the test itself, each with its flags.
std::map<int, int> ownDescriptors() {
    std::map<int, int> open;
    for (int descriptor = 0; descriptor < 1000; ++descriptor) {
        if (const int flags = fcntl(descriptor, F_GETFD); flags != -1) {
            open[descriptor] = flags;
        }
    }
    return open;
}

TEST(ALaunch, LeavesTheParentOnlyTheEndsOfItsPipes) {
    const std::map<int, int> before = ownDescriptors();
    {
        process::basic_context context;
        context.stdin_behavior = stream_behavior::capture;
        context.stdout_behavior = stream_behavior::capture;
        process::posix_child child = process::launch("/bin/true", {"true"}, context);
        EXPECT_EQ(child.wait().exit_status(), 0);
        std::map<int, int> added = ownDescriptors();
        for (const auto& descriptor : before) {
            added.erase(descriptor.first);
        }
        EXPECT_EQ(added.size(), 2U);
        for (const auto& descriptor : added) {
            EXPECT_EQ(descriptor.second, FD_CLOEXEC);
        }
    }
    EXPECT_EQ(ownDescriptors(), before);
}

} // namespace

// In place of the C library's, for what the launch layer asks it. A sanitizer's own start asks,
// too: nothing may be instrumented or looked up here.
extern "C" long __sysconf(int name) noexcept;
extern "C" __attribute__((no_sanitize("address", "thread"))) long sysconf(int name) noexcept {
    return name == _SC_OPEN_MAX && pretendedLimit != 0 ? pretendedLimit : __sysconf(name);
}
