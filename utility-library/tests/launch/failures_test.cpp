#include "support/report.h"

#include <boost/system/system_error.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

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

/// Makes descriptor 2 a file, whatever a context does with it.
std::string catchErrors(const ScratchFolder& folder) {
    const std::string path = folder.file("stderr");
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0666);
    EXPECT_EQ(dup2(file, STDERR_FILENO), STDERR_FILENO);
    close(file);
    return path;
}

Outcome launched(const ScratchFolder& folder, const process::posix_context& context,
                 const std::string& program = "/bin/true") {
    const std::string errors = catchErrors(folder);
    const process::status status = process::launch(program, {program}, context).wait();
    return {status.exited(), status.exit_status(), contentsOf(errors)};
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

struct Failing {
    const char* name;
    const char* step;
    int error;
    void (*ask)(process::posix_context&, const ScratchFolder&);
    void (*prepare)() = nullptr;
};

class AFailingChildsStep : public testing::TestWithParam<Failing> {};

TEST_P(AFailingChildsStep, IsNamed) {
    const ScratchFolder folder; // out here, where it can be removed: the copy gives up root
    isolated([&folder] {
        const std::string errors = catchErrors(folder);
        if (GetParam().prepare != nullptr) {
            GetParam().prepare();
        }
        if (testing::Test::IsSkipped()) {
            return;
        }
        process::posix_context context = contextWithErrors();
        GetParam().ask(context, folder);
        const process::status status = process::launch("/bin/true", {"true"}, context).wait();
        limitDescriptors(64); // to have one for the reading
        expectFailure({status.exited(), status.exit_status(), contentsOf(errors)},
                      "boost::process::detail::" + std::string(GetParam().step), GetParam().error);
    });
}

template <long CALL, int ERROR>
void refuse() {
    if (!refuseSystemCall(CALL, ERROR)) {
        GTEST_SKIP() << "no system call can be refused here";
    }
}

void needRoot() {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may change the root folder";
    }
}

void giveUpRoot() {
    if (geteuid() == 0 && !becomeUnprivileged()) {
        GTEST_SKIP() << "root cannot be given up here";
    }
}

using Context = process::posix_context;
using Folder = ScratchFolder;

INSTANTIATE_TEST_SUITE_P(
    , AFailingChildsStep,
    testing::Values(
        Failing{"MissingWorkFolder", "posix_setup: chdir(2) failed", ENOENT,
                [](Context& c, const Folder& f) { c.work_directory = f.file("missing"); }},
        Failing{"WorkFolderThatIsAFile", "posix_setup: chdir(2) failed", ENOTDIR,
                [](Context& c, const Folder& f) { c.work_directory = f.write("a file", ""); }},
        Failing{"MissingRootFolder", "posix_setup: chroot(2) failed", ENOENT,
                [](Context& c, const Folder& f) { c.chroot = f.file("missing"); }, needRoot},
        Failing{"ChrootWithoutTheRight", "posix_setup: chroot(2) failed", EPERM,
                [](Context& c, const Folder&) { c.chroot = "/"; }, giveUpRoot},
        Failing{"SetgidWithoutTheRight", "posix_setup: setgid(2) failed", EPERM,
                [](Context& c, const Folder&) { c.gid = 0; }, giveUpRoot},
        Failing{"SetegidWithoutTheRight", "posix_setup: setegid(2) failed", EPERM,
                [](Context& c, const Folder&) { c.egid = 0; }, giveUpRoot},
        Failing{"SetuidWithoutTheRight", "posix_setup: setuid(2) failed", EPERM,
                [](Context& c, const Folder&) { c.uid = 0; }, giveUpRoot},
        Failing{"SeteuidWithoutTheRight", "posix_setup: seteuid(2) failed", EPERM,
                [](Context& c, const Folder&) { c.euid = 0; }, giveUpRoot},
        Failing{"SessionThatCannotBeMade", "posix_setup: setsid(2) failed", EPERM,
                [](Context& c, const Folder&) { c.new_session = true; }, refuse<SYS_setsid, EPERM>},
        Failing{"SilencedInput", "setup_input: open(2) of /dev/zero", EMFILE,
                [](Context& c, const Folder&) {
                    c.input_behavior.emplace(0, stream_behavior::silence);
                },
                useUpDescriptors},
        Failing{"SilencedOutput", "setup_output: open(2) of /dev/null", EMFILE,
                [](Context& c, const Folder&) {
                    c.output_behavior.emplace(1, stream_behavior::silence);
                },
                useUpDescriptors},
        Failing{"RedirectionToAClosedDescriptor", "file_handle::posix_dup: dup2(2) failed", EBADF,
                [](Context& c, const Folder&) {
                    c.output_behavior.emplace(1, stream_behavior::redirect_to(999));
                }},
        Failing{"StreamThatCannotBeMovedInPlace", "file_handle::posix_remap: dup2(2) failed", EBUSY,
                [](Context& c, const Folder&) {
                    c.input_behavior.emplace(5, stream_behavior::silence);
                },
                refuse<DUP2_CALL, EBUSY>},
        Failing{"MovedStreamThatCannotBeClosed", "file_handle::posix_remap: close(2) failed", EIO,
                [](Context& c, const Folder&) {
                    c.output_behavior.emplace(1, stream_behavior::capture);
                },
                refuse<SYS_close, EIO>}),
    [](const auto& each) { return std::string(each.param.name); });

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
        EXPECT_THAT(outcome.text,
                    testing::StartsWith("boost::process: Assertion `d < maxdescs' failed.\n"));
    });
}

INSTANTIATE_TEST_SUITE_P(EveryWay, AChildAtTheLimit,
                         testing::Values(stream_behavior::capture, stream_behavior::close,
                                         stream_behavior::inherit, stream_behavior::silence));

/// Captures these descriptors of a child, which writes its number to each.
void expectEachToCarryItsNumber(const ReportFolder& folder, const std::vector<int>& descriptors) {
    process::posix_context context;
    context.environment = process::current_environment();
    std::vector<std::string> requests;
    for (const int descriptor : descriptors) {
        context.output_behavior.emplace(descriptor, stream_behavior::capture);
        const std::string number = std::to_string(descriptor);
        requests.push_back("write:" + number + ":" + number);
    }
    const process::posix_child child =
        process::launch(folder.program(), folder.arguments(requests), context);
    for (const int descriptor : descriptors) {
        std::string line;
        std::getline(child.get_output(descriptor), line);
        EXPECT_EQ(line, std::to_string(descriptor));
    }
    EXPECT_EQ(child.wait().exit_status(), 0);
}

TEST(AChild, MayHaveCapturedStreamsUpToTheLimit) {
    isolated([] {
        limitDescriptors(256);
        // Among them all low numbers: no pipe can be made out of the way at once.
        std::vector<int> descriptors(60);
        std::iota(descriptors.begin(), descriptors.end(), 0);
        for (int descriptor = 252; descriptor < 256; ++descriptor) {
            descriptors.push_back(descriptor);
        }
        expectEachToCarryItsNumber(ReportFolder(), descriptors);
    });
}

TEST(AChild, MayHaveCapturedStreamsWhereThePipesAreMade) {
    isolated([] {
        const ReportFolder folder;
        for (int first = 3; first < 40; ++first) {
            expectEachToCarryItsNumber(folder, {first, first + 1});
        }
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
