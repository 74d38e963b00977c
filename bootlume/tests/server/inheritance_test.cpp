#include "server/inheritance.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

namespace {

bool isNull(int descriptor) {
    struct stat found {};
    struct stat null {};
    return fstat(descriptor, &found) == 0 && stat("/dev/null", &null) == 0 &&
           found.st_rdev == null.st_rdev;
}

/// In a child without the descriptors of `closed`: whether these are the null device afterwards,
/// the others are what they were, and the next descriptor is none of the three.
bool opensInPlaceOf(const std::vector<int>& closed) {
    const pid_t child = fork();
    if (child == 0) {
        int ends[2];
        bool good = pipe(ends) == 0;
        for (int descriptor = 0; descriptor < 3; ++descriptor) {
            good = dup2(ends[1], descriptor) == descriptor && good;
        }
        for (const int descriptor : closed) {
            good = close(descriptor) == 0 && good;
        }
        correctInheritance();
        std::size_t nulls = 0;
        for (int descriptor = 0; descriptor < 3; ++descriptor) {
            nulls += isNull(descriptor) ? 1U : 0U;
        }
        for (const int descriptor : closed) {
            good = isNull(descriptor) && good;
        }
        good = nulls == closed.size() && dup(ends[0]) > 2 && good;
        _exit(good ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(Inheritance, OpensStandardDescriptorsIfTheyAreClosedAndNoOthers) {
    EXPECT_TRUE(opensInPlaceOf({}));
    EXPECT_TRUE(opensInPlaceOf({0}));
    EXPECT_TRUE(opensInPlaceOf({1}));
    EXPECT_TRUE(opensInPlaceOf({2}));
    EXPECT_TRUE(opensInPlaceOf({0, 2}));
    EXPECT_TRUE(opensInPlaceOf({0, 1, 2}));
}

TEST(Inheritance, TakesOverNeitherIgnoredSignalsNorBlockedEndingSignals) {
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGCHLD, SIG_IGN);
        signal(SIGTERM, SIG_IGN);
        sigset_t all{};
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        correctInheritance();
        sigset_t left{};
        sigprocmask(SIG_SETMASK, nullptr, &left);
        const bool good = signal(SIGCHLD, SIG_IGN) == SIG_DFL &&
                          signal(SIGTERM, SIG_IGN) == SIG_DFL && sigismember(&left, SIGHUP) == 0 &&
                          sigismember(&left, SIGINT) == 0 && sigismember(&left, SIGTERM) == 0 &&
                          sigismember(&left, SIGUSR1) == 1;
        _exit(good ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

} // namespace
