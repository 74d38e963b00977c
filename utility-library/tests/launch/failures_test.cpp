#include "support/report.h"

#include <boost/system/system_error.hpp>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>

namespace process = boost::process;
using process::stream_behavior;

namespace {

#ifdef SYS_dup2
constexpr long DUP2_CALL = SYS_dup2;
#else
constexpr long DUP2_CALL = SYS_dup3;
#endif

int pathconfError = 0; ///< what pathconf fails with; 0: it works

/// What the error class says of a failed step.
std::string errorText(const std::string& step, int error) {
    return boost::system::system_error(
               boost::system::error_code(error, boost::system::system_category()), step)
        .what();
}

struct Outcome {
    bool exited;
    int code;
    std::string text; ///< what came out of the child's descriptor 2
};

/// A launch whose descriptor 2 is a file from the start, whatever the context does with it.
Outcome launched(const ScratchFolder& folder, const process::posix_context& context,
                 const std::string& program = "/bin/true") {
    const std::string path = folder.file("stderr");
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0666);
    EXPECT_EQ(dup2(file, STDERR_FILENO), STDERR_FILENO);
    close(file);
    const process::status status = process::launch(program, {program}, context).wait();
    return {status.exited(), status.exit_status(), contentsOf(path)};
}

/// The failing child said why, in the error class's words and a newline, and ended with code 1.
void expectFailure(const Outcome& outcome, const std::string& step, int error) {
    EXPECT_TRUE(outcome.exited);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_EQ(outcome.text, errorText(step, error) + "\n");
}

process::posix_context contextWithErrors() {
    process::posix_context context;
    context.output_behavior.emplace(STDERR_FILENO, stream_behavior::inherit);
    return context;
}

/// Every descriptor below the limit is open.
void useUpDescriptors() {
    limitDescriptors(32);
    while (dup(STDIN_FILENO) != -1) {
    }
    EXPECT_EQ(errno, EMFILE);
}

/// The message of what the body throws; empty where it throws nothing.
std::string thrownBy(const std::function<void()>& body) {
    try {
        body();
    } catch (const boost::system::system_error& e) {
        return e.what();
    }
    return "";
}

void launchTrue(stream_behavior::type output) {
    process::basic_context context;
    context.work_directory = "/";
    context.stdout_behavior = output;
    process::launch("/bin/true", {"true"}, context).wait();
}

TEST(AFailingChild, NamesAMissingProgram) {
    isolated([] {
        const ScratchFolder folder;
        expectFailure(launched(folder, contextWithErrors(), folder.file("missing")),
                      "boost::process::detail::posix_start: execve(2) failed", ENOENT);
        EXPECT_EQ(contentsOf(folder.file("stderr")),
                  "boost::process::detail::posix_start: execve(2) failed: "
                  "No such file or directory\n");
    });
}

TEST(AFailingChild, NamesAFolderAndAFileThatCannotBeRun) {
    isolated([] {
        const ScratchFolder folder;
        const char* const step = "boost::process::detail::posix_start: execve(2) failed";
        expectFailure(launched(folder, contextWithErrors(), folder.path()), step, EACCES);
        expectFailure(
            launched(folder, contextWithErrors(), folder.write("plain", "#!/bin/sh\n", 0644)), step,
            EACCES);
        expectFailure(launched(folder, contextWithErrors(), folder.write("noise", "no program")),
                      step, ENOEXEC);
    });
}

TEST(AFailingChild, SaysSoIntoACapturedErrorStream) {
    process::basic_context context;
    context.stderr_behavior = stream_behavior::capture;
    process::posix_child child = process::launch("/missing/program", {"program"}, context);
    std::ostringstream text;
    text << child.get_stderr().rdbuf();
    EXPECT_EQ(text.str(),
              errorText("boost::process::detail::posix_start: execve(2) failed", ENOENT) + "\n");
    const process::status status = child.wait();
    EXPECT_TRUE(status.exited());
    EXPECT_EQ(status.exit_status(), 1);
}

TEST(AFailingChild, EndsWithCodeOneThoughNobodyCanReadWhy) {
    isolated([] {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        signal(SIGPIPE, SIG_DFL);
        const process::status status =
            process::launch("/missing/program", {"program"}, contextWithErrors()).wait();
        EXPECT_TRUE(status.exited());
        EXPECT_EQ(status.exit_status(), 1);
    });
}

TEST(AFailingChild, NamesAWorkFolderThatIsMissing) {
    isolated([] {
        const ScratchFolder folder;
        process::posix_context context = contextWithErrors();
        context.work_directory = folder.file("missing");
        expectFailure(launched(folder, context),
                      "boost::process::detail::posix_setup: chdir(2) failed", ENOENT);
        context.work_directory = folder.write("a file", "");
        expectFailure(launched(folder, context),
                      "boost::process::detail::posix_setup: chdir(2) failed", ENOTDIR);
    });
}

TEST(AFailingChild, NamesTheRootFolderThatIsMissing) {
    isolated([] {
        const ScratchFolder folder;
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root may change the root folder";
        }
        process::posix_context context = contextWithErrors();
        context.chroot = folder.file("missing");
        expectFailure(launched(folder, context),
                      "boost::process::detail::posix_setup: chroot(2) failed", ENOENT);
    });
}

struct RightCase {
    const char* call;
    void (*ask)(process::posix_context&);
};

class AChildWithoutTheRight : public testing::TestWithParam<RightCase> {};

TEST_P(AChildWithoutTheRight, NamesTheCall) {
    isolated([] {
        const ScratchFolder folder;
        if (geteuid() == 0 && !becomeUnprivileged()) {
            GTEST_SKIP() << "root cannot be given up here";
        }
        process::posix_context context = contextWithErrors();
        GetParam().ask(context);
        expectFailure(launched(folder, context),
                      "boost::process::detail::posix_setup: " + std::string(GetParam().call) +
                          "(2) failed",
                      EPERM);
    });
}

INSTANTIATE_TEST_SUITE_P(
    EveryCall, AChildWithoutTheRight,
    testing::Values(
        RightCase{"chroot", [](process::posix_context& context) { context.chroot = "/"; }},
        RightCase{"setgid", [](process::posix_context& context) { context.gid = 0; }},
        RightCase{"setegid", [](process::posix_context& context) { context.egid = 0; }},
        RightCase{"setuid", [](process::posix_context& context) { context.uid = 0; }},
        RightCase{"seteuid", [](process::posix_context& context) { context.euid = 0; }}),
    [](const auto& each) { return std::string(each.param.call); });

TEST(AFailingChild, NamesTheSessionThatCannotBeMade) {
    isolated([] {
        const ScratchFolder folder;
        if (!refuseSystemCall(SYS_setsid, EPERM)) {
            GTEST_SKIP() << "no system call can be refused here";
        }
        process::posix_context context = contextWithErrors();
        context.new_session = true;
        expectFailure(launched(folder, context),
                      "boost::process::detail::posix_setup: setsid(2) failed", EPERM);
    });
}

TEST(AFailingChild, NamesTheFileOfASilencedInput) {
    isolated([] {
        const ScratchFolder folder;
        process::posix_context context = contextWithErrors();
        context.input_behavior.emplace(0, stream_behavior::silence);
        const std::string path = folder.write("stderr", "");
        ASSERT_EQ(dup2(open(path.c_str(), O_WRONLY), STDERR_FILENO), STDERR_FILENO);
        useUpDescriptors();
        const process::status status = process::launch("/bin/true", {"true"}, context).wait();
        limitDescriptors(64);
        expectFailure({status.exited(), status.exit_status(), contentsOf(path)},
                      "boost::process::detail::setup_input: open(2) of /dev/zero", EMFILE);
    });
}

TEST(AFailingChild, NamesTheFileOfASilencedOutput) {
    isolated([] {
        const ScratchFolder folder;
        process::posix_context context = contextWithErrors();
        context.output_behavior.emplace(1, stream_behavior::silence);
        const std::string path = folder.write("stderr", "");
        ASSERT_EQ(dup2(open(path.c_str(), O_WRONLY), STDERR_FILENO), STDERR_FILENO);
        useUpDescriptors();
        const process::status status = process::launch("/bin/true", {"true"}, context).wait();
        limitDescriptors(64);
        expectFailure({status.exited(), status.exit_status(), contentsOf(path)},
                      "boost::process::detail::setup_output: open(2) of /dev/null", EMFILE);
    });
}

TEST(AFailingChild, NamesTheRedirectionToAClosedDescriptor) {
    isolated([] {
        const ScratchFolder folder;
        process::posix_context context = contextWithErrors();
        context.output_behavior.emplace(1, stream_behavior::redirect_to(999));
        expectFailure(launched(folder, context),
                      "boost::process::detail::file_handle::posix_dup: dup2(2) failed", EBADF);
    });
}

TEST(AFailingChild, NamesTheStreamThatCannotBeMovedInPlace) {
    isolated([] {
        const ScratchFolder folder;
        process::posix_context context = contextWithErrors();
        context.input_behavior.emplace(5, stream_behavior::silence);
        if (!refuseSystemCall(DUP2_CALL, EBUSY)) {
            GTEST_SKIP() << "no system call can be refused here";
        }
        const std::string path = folder.write("stderr", "");
        close(STDERR_FILENO);
        ASSERT_EQ(open(path.c_str(), O_WRONLY), STDERR_FILENO);
        const process::status status = process::launch("/bin/true", {"true"}, context).wait();
        expectFailure({status.exited(), status.exit_status(), contentsOf(path)},
                      "boost::process::detail::file_handle::posix_remap: dup2(2) failed", EBUSY);
    });
}

TEST(AFailingChild, NamesTheMovedStreamThatCannotBeClosed) {
    isolated([] {
        const ScratchFolder folder;
        process::posix_context context = contextWithErrors();
        context.output_behavior.emplace(1, stream_behavior::capture);
        const std::string path = folder.write("stderr", "");
        ASSERT_EQ(dup2(open(path.c_str(), O_WRONLY), STDERR_FILENO), STDERR_FILENO);
        if (!refuseSystemCall(SYS_close, EIO)) {
            GTEST_SKIP() << "no system call can be refused here";
        }
        const process::status status = process::launch("/bin/true", {"true"}, context).wait();
        expectFailure({status.exited(), status.exit_status(), contentsOf(path)},
                      "boost::process::detail::file_handle::posix_remap: close(2) failed", EIO);
    });
}

class AChildAtTheLimit : public testing::TestWithParam<stream_behavior::type> {};

TEST_P(AChildAtTheLimit, IsRefusedBeforeAnyDescriptorIsTouched) {
    isolated([] {
        const ScratchFolder folder;
        limitDescriptors(64);
        process::posix_context context;
        context.input_behavior.emplace(STDERR_FILENO, stream_behavior::close);
        context.output_behavior.emplace(64, GetParam());
        const Outcome outcome = launched(folder, context);
        EXPECT_FALSE(outcome.exited); // ended by abort
        EXPECT_EQ(outcome.text, "boost::process: Assertion `d < maxdescs' failed.\n");
    });
}

INSTANTIATE_TEST_SUITE_P(EveryWay, AChildAtTheLimit,
                         testing::Values(stream_behavior::capture, stream_behavior::close,
                                         stream_behavior::inherit, stream_behavior::silence));

TEST(AChild, MayHaveCapturedStreamsUpToTheLimit) {
    isolated([] {
        limitDescriptors(256);
        process::posix_context context;
        context.environment = process::current_environment();
        // Among them all low numbers: no pipe can be made out of the way at once.
        for (int d = 0; d < 60; ++d) {
            context.output_behavior.emplace(d, stream_behavior::capture);
        }
        for (int d = 252; d < 256; ++d) {
            context.output_behavior.emplace(d, stream_behavior::capture);
        }
        // A shell takes no number above 9 by itself.
        const process::posix_child child = process::launch(
            "/bin/bash", {"bash", "-c", "for d in {0..59} {252..255}; do echo $d >&$d; done"},
            context);
        for (const auto& output : context.output_behavior) {
            std::string line;
            std::getline(child.get_output(output.first), line);
            EXPECT_EQ(line, std::to_string(output.first));
        }
        EXPECT_EQ(child.wait().exit_status(), 0);
    });
}

TEST(ALaunch, ThrowsWhereNoProcessCanBeMade) {
    isolated([] {
        if (!becomeUnprivileged()) {
            GTEST_SKIP() << "only root can take an id that no other process has";
        }
        const rlimit none{0, 0};
        ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
        EXPECT_EQ(thrownBy([] { launchTrue(stream_behavior::capture); }),
                  errorText("boost::process::detail::posix_start: fork(2) failed", EAGAIN));
    });
}

TEST(ALaunch, ThrowsWhereNoPipeCanBeOpenedAndKeepsNoDescriptor) {
    isolated([] {
        useUpDescriptors();
        const std::string text =
            errorText("boost::process::detail::pipe::pipe: pipe(2) failed", EMFILE);
        EXPECT_EQ(thrownBy([] { launchTrue(stream_behavior::capture); }), text);
        close(31); // room for one end only
        EXPECT_EQ(thrownBy([] { launchTrue(stream_behavior::capture); }), text);
        EXPECT_EQ(dup(STDIN_FILENO), 31);
    });
}

TEST(ALaunch, ThrowsWhereAPipeCannotBeMovedOffTheStandardStreams) {
    isolated([] {
        close(0);
        close(1);
        limitDescriptors(3);
        EXPECT_EQ(thrownBy([] { launchTrue(stream_behavior::capture); }),
                  errorText("boost::process::detail::posix_start: fcntl(2) failed", EMFILE));
        EXPECT_EQ(open("/dev/null", O_RDONLY), 0) << "an end of the pipe was left open";
    });
}

TEST(ALaunch, ThrowsWhereTheChildCannotBeWaitedFor) {
    isolated([] {
        signal(SIGCHLD, SIG_IGN); // children vanish without a status
        process::basic_context context;
        EXPECT_EQ(thrownBy([&] { process::launch("/bin/true", {"true"}, context).wait(); }),
                  errorText("boost::process::child::wait: waitpid(2) failed", ECHILD));
    });
}

TEST(AContext, ThrowsWhereTheCurrentFolderIsGone) {
    isolated([] {
        const ScratchFolder folder;
        const std::string gone = folder.file("gone");
        std::filesystem::create_directory(gone);
        ASSERT_EQ(chdir(gone.c_str()), 0);
        const process::basic_context before;
        std::filesystem::remove(gone);
        const std::string text = errorText("boost::process::basic_work_directory_context::"
                                           "basic_work_directory_context: getcwd(2) failed",
                                           ENOENT);
        EXPECT_EQ(thrownBy([] { process::basic_context(); }), text);
        EXPECT_EQ(thrownBy([] { process::posix_context(); }), text);

        process::basic_context elsewhere = before;
        elsewhere.work_directory = "/";
        EXPECT_EQ(process::launch("/bin/true", {"true"}, elsewhere).wait().exit_status(), 0);
    });
}

TEST(AContext, ThrowsWhereTheLongestPathIsUnknown) {
    pathconfError = EINVAL; // the C library's own never fails for a path that is not empty
    const std::string thrown = thrownBy([] { process::basic_context(); });
    pathconfError = 0;
    EXPECT_EQ(thrown, errorText("boost::process::basic_work_directory_context::"
                                "basic_work_directory_context: pathconf(2) failed",
                                EINVAL));
}

TEST(ALaunchDeathTest, NeedsArgumentsAndAWorkFolder) {
    process::basic_context context;
    EXPECT_DEATH(process::launch("/bin/true", {}, context), "Assertion `!args.empty\\(\\)' failed");
    context.work_directory.clear();
    EXPECT_DEATH(process::launch("/bin/true", {"true"}, context),
                 "Assertion `!ctx.work_directory.empty\\(\\)' failed");
}

} // namespace

// In place of the C library's.
extern "C" long pathconf(const char* path, int name) noexcept {
    if (pathconfError != 0) {
        errno = pathconfError;
        return -1;
    }
    const int folder = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const long value = folder == -1 ? 4096 : fpathconf(folder, name);
    if (folder != -1) {
        close(folder);
    }
    return value;
}
