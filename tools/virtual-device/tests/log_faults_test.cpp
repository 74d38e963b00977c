// The log of calls, and faults on demand.
#include "desk.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>

using desk::Desk;
using desk::Environment;
using desk::numberIn;
using desk::Words;

namespace {

const Words SET_UP = {"open",  "capabilities", "format",  "buffers:2",
                      "map:0", "map:1",        "queue:1", "on"};

Words setUpAnd(const Words& more) {
    Words all = SET_UP;
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

Environment faults(const std::string& text) {
    return {{"VIRTUAL_DEVICE_FAULTS", text}, {"VIRTUAL_DEVICE_REFRESH", "0"}};
}

/// How often the process has given the processor away by itself.
long waitsOf(pid_t pid) {
    const std::string name = "\nvoluntary_ctxt_switches:";
    const std::string status = desk::readFile("/proc/" + std::to_string(pid) + "/status");
    return std::stol(status.substr(status.find(name) + name.size()));
}

} // namespace

TEST(ALog, HoldsEveryCallOfTheDeviceInOrder) {
    Desk desk;
    const auto result = desk.run(setUpAnd({"flip:1", "off", "unmap:0", "unmap:1", "close"}));
    ASSERT_EQ(0, result.status) << result.errors;
    const Words expected = {"open",
                            "VIDIOC_QUERYCAP",
                            "VIDIOC_G_FMT",
                            "VIDIOC_S_FMT",
                            "VIDIOC_REQBUFS",
                            "VIDIOC_QUERYBUF",
                            "mmap",
                            "VIDIOC_QUERYBUF",
                            "mmap",
                            "VIDIOC_QBUF",
                            "VIDIOC_STREAMON",
                            "VIDIOC_QBUF",
                            "VIDIOC_DQBUF",
                            "VIDIOC_STREAMOFF",
                            "munmap",
                            "munmap",
                            "close"};
    const auto records = desk.records({"\"kind\":\"device\""});
    ASSERT_EQ(expected.size(), records.size()) << desk.log();
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NE(std::string::npos, records[i].find("\"call\":\"" + expected[i] + "\""))
            << records[i];
    }
}

TEST(ALog, TellsThreadTimeArgumentsAndResult) {
    Desk desk;
    desk.run(setUpAnd({"flip:1"}));
    const auto requests = desk.records({"VIDIOC_REQBUFS"});
    ASSERT_EQ(1U, requests.size());
    EXPECT_NE(std::string::npos, requests[0].find("\"in\":{\"count\":2,\"type\":2,\"memory\":1,"));
    EXPECT_NE(std::string::npos, requests[0].find("\"out\":{\"count\":2,"));
    EXPECT_NE(std::string::npos, requests[0].find("\"thread\":\"virtual-device-"));
    EXPECT_NE(std::string::npos, requests[0].find("\"result\":0,\"errno\":0,"));
    EXPECT_EQ(numberIn(requests[0], "pid"), numberIn(requests[0], "tid"));
    std::int64_t last = 0;
    for (const std::string& record : desk.records({"\"kind\":\"device\""})) {
        EXPECT_GE(numberIn(record, "time_ns"), last);
        EXPECT_GE(numberIn(record, "duration_ns"), 0);
        last = numberIn(record, "time_ns") + numberIn(record, "duration_ns");
    }
}

TEST(ALog, NamesTheErrnoOfAFailure) {
    Desk desk;
    const auto result = desk.run({"open", "queue:0", "unknown", "nothing"});
    EXPECT_EQ("EINVAL", result[1]);
    EXPECT_EQ("ENOTTY", result[2]);
    EXPECT_EQ("EFAULT", result[3]);
    EXPECT_EQ(
        1U,
        desk.records({"VIDIOC_QBUF", "\"result\":-1,\"errno\":22,\"error\":\"EINVAL\""}).size());
    EXPECT_EQ(1U,
              desk.records({"\"call\":\"ioctl\"", "\"request\":\"0xc00456fa\"", "ENOTTY"}).size());
}

TEST(ALog, TellsSleepsAndWhetherASignalCutThemShort) {
    Desk desk;
    const auto result = desk.run({"sleep:2", "alarm:5", "sleep:5000"});
    EXPECT_EQ("EINTR", result[2]);
    ASSERT_EQ(1U, desk.records({"nanosleep", "\"requested_ns\":2000000,\"result\":0"}).size());
    EXPECT_EQ(
        1U,
        desk.records({"nanosleep", "\"requested_ns\":5000000000", "\"error\":\"EINTR\""}).size());
}

TEST(ALog, IsNotWrittenWhereNoneIsAskedFor) {
    Desk desk;
    const auto result = desk.run(SET_UP, {{"VIRTUAL_DEVICE_LOG", ""}});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", desk.log());
}

TEST(AFault, FailsTheChosenCallWithTheChosenErrno) {
    struct Case {
        const char* fault;
        std::size_t word;
        const char* error;
    };
    const Words words = setUpAnd({"queue:0", "dequeue", "off", "unmap:0", "unmap:1", "close"});
    const Case cases[] = {
        {"open@1=ENODEV", 0, "ENODEV"},          {"VIDIOC_QUERYCAP@1=EIO", 1, "EIO"},
        {"VIDIOC_S_FMT@1=EBUSY", 2, "EBUSY"},    {"VIDIOC_REQBUFS@1=ENOMEM", 3, "ENOMEM"},
        {"VIDIOC_QUERYBUF@2=EIO", 5, "EIO"},     {"mmap@1=ENOMEM", 4, "ENOMEM"},
        {"mmap@2=EAGAIN", 5, "EAGAIN"},          {"VIDIOC_QBUF@1=EIO", 6, "EIO"},
        {"VIDIOC_STREAMON@1=EPIPE", 7, "EPIPE"}, {"VIDIOC_QBUF@2=ENOSPC", 8, "ENOSPC"},
        {"VIDIOC_DQBUF@1=EIO", 9, "EIO"},        {"VIDIOC_STREAMOFF@1=EIO", 10, "EIO"},
        {"munmap@2=EINVAL", 12, "EINVAL"},       {"close@1=EINTR", 13, "EINTR"},
    };
    for (const Case& one : cases) {
        Desk desk;
        Words until(words.begin(), words.begin() + int(one.word) + 1);
        const auto result = desk.run(until, faults(one.fault));
        EXPECT_EQ(one.error, result[one.word]) << one.fault << " " << result.errors;
        EXPECT_NE(one.error, one.word > 0 ? result[one.word - 1] : "") << one.fault;
        EXPECT_EQ(1U, desk.records({"\"kind\":\"fault\"", one.error}).size()) << one.fault;
    }
}

TEST(AFault, StrikesOnceOrFromACallOn) {
    Desk once;
    auto result = once.run({"open", "format", "format", "format"}, faults("VIDIOC_S_FMT@2=EIO"));
    EXPECT_EQ("480x800,960,768000", result[1]);
    EXPECT_EQ("EIO", result[2]);
    EXPECT_EQ("480x800,960,768000", result[3]);
    Desk always;
    result = always.run({"open", "format", "format", "format"}, faults("VIDIOC_S_FMT@2+=EIO"));
    EXPECT_EQ("480x800,960,768000", result[1]);
    EXPECT_EQ("EIO", result[2]);
    EXPECT_EQ("EIO", result[3]);
}

TEST(AFault, BlocksForAGivenTimeAndThenGoesOn) {
    Desk desk;
    const auto result =
        desk.run({"open", "alarm:1", "capabilities"}, faults("VIDIOC_QUERYCAP@1=block:60"));
    EXPECT_EQ("0", result[2]);
    const auto records = desk.records({"\"kind\":\"device\"", "VIDIOC_QUERYCAP"});
    ASSERT_EQ(1U, records.size());
    EXPECT_GE(numberIn(records[0], "duration_ns"), 60000000);
}

TEST(AFault, BlocksUntilASignalHandlerHasRun) {
    Desk desk;
    const auto result =
        desk.run({"open", "alarm:20", "capabilities"}, faults("VIDIOC_QUERYCAP@1=block"));
    EXPECT_EQ("EINTR", result[2]);
}

TEST(AFault, HoldsTheCallUntilTheDeskLetsItGo) {
    Desk desk;
    desk.start({"open", "alarm:1", "capabilities"}, faults("VIDIOC_QUERYCAP@1=hold"));
    ASSERT_TRUE(desk::eventually([&] { return !desk.records({"\"action\":\"hold\""}).empty(); }));
    const long before = waitsOf(desk.pid());
    ASSERT_TRUE(desk::eventually([&] { return waitsOf(desk.pid()) >= before + 5; }));
    EXPECT_TRUE(desk.records({"\"kind\":\"device\"", "VIDIOC_QUERYCAP"}).empty());
    desk.write("/go", "");
    EXPECT_EQ("0", desk.finish()[2]);
}

TEST(AFault, BlocksUntilTheProcessIsKilled) {
    Desk desk;
    desk.start({"open", "capabilities"}, faults("VIDIOC_QUERYCAP@1=block"));
    ASSERT_TRUE(desk::eventually([&] { return !desk.records({"\"action\":\"block\""}).empty(); }));
    kill(desk.pid(), SIGTERM);
    EXPECT_EQ(1000 + SIGTERM, desk.finish().status);
}

TEST(AFault, GrantsOneBufferOnly) {
    Desk desk;
    const auto result =
        desk.run({"open", "buffers:2", "map:0", "map:1"}, {{"VIRTUAL_DEVICE_BUFFERS", "1"}});
    EXPECT_EQ("1", result[1]);
    EXPECT_EQ("0", result[2]);
    EXPECT_EQ("EINVAL", result[3]);
}

TEST(AFault, AdjustsTheFormat) {
    Desk desk;
    const auto result =
        desk.run({"open", "format"},
                 {{"VIRTUAL_DEVICE_FORMAT", "bytesperline=1440,height=400,sizeimage=9"}});
    EXPECT_EQ("480x400,1440,9", result[1]);
}

TEST(ASetting, ThatIsWrongEndsTheProgramWithOneClearLine) {
    const Environment cases = {
        {"VIRTUAL_DEVICE_ROOT", "/no/such/folder"},
        {"VIRTUAL_DEVICE_SCREEN", "relative"},
        {"VIRTUAL_DEVICE_LOG", "/no/such/file"},
        {"VIRTUAL_DEVICE_REFRESH", "fast"},
        {"VIRTUAL_DEVICE_BUFFERS", "33"},
        {"VIRTUAL_DEVICE_FORMAT", "depth=3"},
        {"VIRTUAL_DEVICE_FAULTS", "VIDIOC_QBUF@0=EIO"},
        {"VIRTUAL_DEVICE_ROOTS", "/tmp"},
    };
    for (const auto& [name, value] : cases) {
        Desk desk;
        const auto result = desk.run({"sleep:0"}, {{name, value}});
        EXPECT_EQ(3, result.status) << name;
        EXPECT_EQ(0U, result.lines.size()) << name;
        EXPECT_EQ(0U, result.errors.find("virtual-device: " + name + "=")) << result.errors;
        EXPECT_EQ(result.errors.size() - 1, result.errors.find('\n')) << result.errors;
    }
}

TEST(ASetting, OfFaultsIsReadStrictly) {
    for (const char* text :
         {"open", "open@1", "open=EIO", "open@x=EIO", "open@1=", "open@1=EWRONG", "open@1=holds",
          "display@1=hold", "open@1=block:", "open@1=block:x", "open@1=blocked", "closed@1=EIO",
          "display@1=EIO", "display@1=block", "open@1=EIO,", "open@+=EIO"}) {
        Desk desk;
        EXPECT_EQ(3, desk.run({"sleep:0"}, faults(text)).status) << text;
    }
}
