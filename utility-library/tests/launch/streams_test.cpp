#include "support/emulation.h"
#include "support/report.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <tuple>

namespace process = boost::process;
using process::stream_behavior;

namespace {

constexpr int REDIRECT_TARGET = 77;

/// A descriptor, whether the child writes to it, and what happens to it.
using Stream = std::tuple<int, bool, stream_behavior::type>;

/// Puts a file of the folder onto a descriptor of the process.
std::string openFileAt(const ScratchFolder& folder, int descriptor) {
    const std::string path = folder.write("file" + std::to_string(descriptor), "from the parent");
    const int file = open(path.c_str(), O_RDWR);
    EXPECT_EQ(dup2(file, descriptor), descriptor);
    if (file != descriptor) {
        close(file);
    }
    return path;
}

class AStreamOfTheChild : public testing::TestWithParam<Stream> {
protected:
    static int descriptor() { return std::get<0>(GetParam()); }
    static bool output() { return std::get<1>(GetParam()); }
    static stream_behavior::type kind() { return std::get<2>(GetParam()); }

    static process::posix_context context() {
        const stream_behavior behavior = kind() == stream_behavior::posix_redirect
                                             ? stream_behavior::redirect_to(REDIRECT_TARGET)
                                             : stream_behavior(kind());
        process::posix_context context;
        auto& behaviors = output() ? context.output_behavior : context.input_behavior;
        behaviors.emplace(descriptor(), behavior);
        return context;
    }

    /// Sends a text through the captured stream; returns what came out at the other end.
    static std::string sendThroughPipe(const ReportFolder& folder) {
        const std::string number = std::to_string(descriptor());
        const std::string request = output() ? "write:" + number + ":a text" : "read:" + number;
        process::posix_child child =
            process::launch(folder.program(), folder.arguments({request}), context());
        std::string text;
        if (output()) {
            std::getline(child.get_output(descriptor()), text);
        } else {
            child.get_input(descriptor()) << "a text";
            child.get_input(descriptor()).close();
        }
        EXPECT_EQ(child.wait().exit_status(), 0);
        return output() ? text : folder.report().one("read");
    }
};

TEST_P(AStreamOfTheChild, IsWhatTheCallerAskedForAndTheOnlyOne) {
    SKIP_UNDER_EMULATION("the emulator opens the standard descriptors that a program lacks");
    isolated([] {
        const ReportFolder folder;
        const std::string atStdout = openFileAt(folder, STDOUT_FILENO);
        const std::string atTarget = openFileAt(folder, REDIRECT_TARGET);
        const std::string atDescriptor =
            descriptor() == STDOUT_FILENO ? atStdout : openFileAt(folder, descriptor());

        if (kind() == stream_behavior::capture) {
            EXPECT_EQ(sendThroughPipe(folder), "a text");
        } else {
            ASSERT_EQ(folder.run(context()), 0);
        }
        const std::map<int, std::string> found = folder.report().descriptors();
        if (kind() == stream_behavior::close) {
            EXPECT_TRUE(found.empty());
            return;
        }
        ASSERT_EQ(found.size(), 1U);
        ASSERT_EQ(found.begin()->first, descriptor());
        const std::string& target = found.begin()->second;
        switch (kind()) {
        case stream_behavior::capture:
            EXPECT_EQ(target.substr(0, 6), "pipe:[");
            break;
        case stream_behavior::silence:
            EXPECT_EQ(target, output() ? "/dev/null" : "/dev/zero");
            break;
        case stream_behavior::inherit:
            EXPECT_EQ(target, atDescriptor);
            break;
        case stream_behavior::redirect_to_stdout:
            EXPECT_EQ(target, atStdout);
            break;
        default:
            EXPECT_EQ(target, atTarget);
            break;
        }
    });
}

std::string nameOf(const testing::TestParamInfo<Stream>& info) {
    static const char* const KINDS[] = {"Captured", "Closed",   "Inherited",
                                        "ToStdout", "Silenced", "Redirected"};
    return std::string(std::get<1>(info.param) ? "Output" : "Input") +
           std::to_string(std::get<0>(info.param)) + KINDS[std::get<2>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(
    EveryKind, AStreamOfTheChild,
    testing::Combine(testing::Values(0, 1, 2, 3, 9, 100), testing::Bool(),
                     testing::Values(stream_behavior::capture, stream_behavior::close,
                                     stream_behavior::inherit, stream_behavior::redirect_to_stdout,
                                     stream_behavior::silence, stream_behavior::posix_redirect)),
    nameOf);

TEST(AChild, HasNoStandardStreamsByDefault) {
    SKIP_UNDER_EMULATION("the emulator opens the standard descriptors that a program lacks");
    const ReportFolder folder;
    ASSERT_EQ(folder.run(process::basic_context()), 0);
    EXPECT_TRUE(folder.report().descriptors().empty());
}

TEST(AChild, MayHaveAllThreeStandardStreamsCaptured) {
    EXPECT_EQ(ReportFolder().talkThroughPipes(), "");
}

TEST(AChild, SendsItsErrorsWhereItsCapturedOutputGoes) {
    process::basic_context context;
    context.stdout_behavior = stream_behavior::capture;
    context.stderr_behavior = stream_behavior::redirect_to_stdout;
    process::posix_child child =
        process::launch("/bin/sh", {"sh", "-c", "echo out; echo err >&2"}, context);
    std::string first;
    std::string second;
    std::getline(child.get_stdout(), first);
    std::getline(child.get_stdout(), second);
    EXPECT_EQ(first, "out");
    EXPECT_EQ(second, "err");
    EXPECT_EQ(child.wait().exit_status(), 0);
}

TEST(AChild, ReadsZerosFromASilencedInput) {
    const ReportFolder folder;
    process::basic_context context;
    context.stdin_behavior = stream_behavior::silence;
    ASSERT_EQ(folder.run(context, {"peek:0"}), 0);
    EXPECT_EQ(folder.report().one("peek"), "00000000");
}

TEST(AChild, OutlivesTheReaderOfWhatItWrites) {
    const ScratchFolder folder;
    pid_t pid = 0;
    {
        process::basic_context context;
        context.stdin_behavior = stream_behavior::capture;
        context.stdout_behavior = stream_behavior::capture;
        context.stderr_behavior = stream_behavior::capture;
        // It begins to write at the end of its input: when all its pipes are closed.
        const process::posix_child child = process::launch(
            "/bin/sh",
            {"sh", "-c",
             "read line; echo out; echo err >&2; echo done > " + folder.file("mark") + "; exit 3"},
            context);
        pid = child.id();
    }
    EXPECT_EQ(process::child(pid).wait().exit_status(), 3);
    EXPECT_EQ(contentsOf(folder.file("mark")), "done\n");
}

TEST(AChild, PassesAMegabyteThroughBothPipes) {
    const std::string text(1 << 20, 'x');
    process::basic_context context;
    context.stdin_behavior = stream_behavior::capture;
    context.stdout_behavior = stream_behavior::capture;
    // The shell takes all of its input before it writes, so that neither side waits for the other.
    process::posix_child child =
        process::launch("/bin/sh", {"sh", "-c", "text=$(cat); echo \"$text\""}, context);
    child.get_stdin() << text;
    child.get_stdin().close();
    std::string back;
    std::getline(child.get_stdout(), back);
    EXPECT_EQ(child.wait().exit_status(), 0);
    EXPECT_EQ(back, text);
}

TEST(AChildDeathTest, HasNoStreamObjectForWhatWasNotCaptured) {
    process::basic_context context;
    process::posix_child child = process::launch("/bin/true", {"true"}, context);
    EXPECT_EQ(child.wait().exit_status(), 0);
    EXPECT_DEATH(child.get_stdin(), "Assertion `stdin_' failed");
    EXPECT_DEATH(child.get_stdout(), "Assertion `stdout_' failed");
    EXPECT_DEATH(child.get_stderr(), "Assertion `stderr_' failed");
    EXPECT_DEATH(child.get_input(3), "Assertion");
    EXPECT_DEATH(child.get_output(3), "Assertion");
}

TEST(AStreamBehaviorDeathTest, IsOneOfTheSix) {
    process::posix_context context;
    context.output_behavior.emplace(1, static_cast<stream_behavior::type>(7));
    EXPECT_DEATH(process::launch("/bin/true", {"true"}, context), "Assertion `false' failed");
}

} // namespace
