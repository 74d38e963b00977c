// The fixed paths below the root, the programs that are run there, and life without a root.
#include "desk.h"

#include <filesystem>
#include <gtest/gtest.h>

using desk::Desk;
using desk::Words;

namespace {

const std::string CONFIG = "/opt/userdata/trace_config";
const std::string SOCKET = "/tmp/.bootlume";
const Words READERS = {"open",       "open64",     "openat",       "openat64", "__open_2",
                       "__open64_2", "__openat_2", "__openat64_2", "fopen",    "fopen64",
                       "freopen",    "freopen64",  "ifstream"};
const Words LOOKERS = {"stat",  "stat64", "lstat",     "lstat64", "fstatat", "fstatat64",
                       "statx", "access", "faccessat", "chmod",   "inotify"};

} // namespace

TEST(AFixedPath, IsReadBelowTheRootByEveryCall) {
    for (const std::string& call : READERS) {
        Desk desk;
        desk.write(CONFIG, "on the desk");
        EXPECT_EQ("on the desk", desk.run({"path:" + call + ":" + CONFIG})[0]) << call;
    }
}

TEST(AFixedPath, IsFoundBelowTheRootByEveryCall) {
    for (const std::string& call : LOOKERS) {
        Desk desk;
        EXPECT_EQ("ENOENT", desk.run({"path:" + call + ":" + CONFIG})[0]) << call;
        desk.write(CONFIG, "");
        const std::string found = desk.run({"path:" + call + ":" + CONFIG})[0];
        EXPECT_EQ(call == "inotify" ? "1" : "0", found) << call;
    }
}

TEST(AFixedPath, IsMadeAndRemovedBelowTheRoot) {
    for (const char* call : {"unlink", "unlinkat"}) {
        Desk desk;
        EXPECT_EQ("0", desk.run({"path:creat:" + CONFIG})[0]);
        EXPECT_TRUE(std::filesystem::exists(desk.path(CONFIG)));
        EXPECT_EQ("0", desk.run({std::string("path:") + call + ":" + CONFIG})[0]);
        EXPECT_FALSE(std::filesystem::exists(desk.path(CONFIG)));
    }
}

TEST(AFixedPath, IsRecordedWithWhereItLed) {
    Desk desk;
    desk.run({"path:access:" + CONFIG});
    EXPECT_EQ(
        1U, desk.records({"\"kind\":\"path\"", "\"call\":\"access\"", "\"path\":\"" + CONFIG + "\"",
                          "\"mapped\":\"" + desk.path(CONFIG) + "\"", "ENOENT"})
                .size());
}

TEST(AFixedPath, IsNotTakenForAnotherThatBeginsLikeIt) {
    Desk desk;
    desk.write("/opt/userdatabase", "");
    desk.write("/tmp/.bootlume2", "");
    EXPECT_EQ("ENOENT", desk.run({"path:access:/opt/userdatabase"})[0]);
    EXPECT_EQ("ENOENT", desk.run({"path:access:/tmp/.bootlume2"})[0]);
}

TEST(AFixedPath, LeavesAPathBelowTheRootAlone) {
    Desk desk("/opt/userdata/inner");
    desk.write(CONFIG, "inner");
    EXPECT_EQ("inner", desk.run({"path:open:" + desk.path(CONFIG)})[0]);
}

TEST(AFixedPath, IsRefusedWhereTheRootMakesItTooLong) {
    std::string deep;
    while (deep.size() < 3700) {
        deep += "/" + std::string(240, 'd');
    }
    Desk desk(deep);
    const std::string name = "/opt/userdata/" + std::string(250, 'x') + "/" + std::string(250, 'y');
    EXPECT_EQ("ENAMETOOLONG", desk.run({"path:open:" + name}, {{"VIRTUAL_DEVICE_LOG", ""}})[0]);
}

TEST(ASocket, LiesBelowTheRoot) {
    Desk desk;
    EXPECT_EQ("one,two", desk.run({"talk:" + SOCKET})[0]);
    EXPECT_TRUE(std::filesystem::is_socket(desk.path(SOCKET)));
    EXPECT_EQ("EADDRINUSE", desk.run({"talk:" + SOCKET})[0]);
    EXPECT_EQ("one,two", desk.run({"path:unlink:" + SOCKET, "talk:" + SOCKET})[1]);
}

TEST(ASocket, LiesBelowARootOfAnyLength) {
    Desk desk("/" + std::string(200, 'l') + "/" + std::string(200, 'm'));
    EXPECT_EQ("one,two", desk.run({"talk:" + SOCKET})[0]);
    EXPECT_TRUE(std::filesystem::is_socket(desk.path(SOCKET)));
}

TEST(AProgram, ThatRebootsIsRunFromBelowTheRootOnly) {
    for (const char* call : {"execve:", "execv:", "spawn:"}) {
        for (const char* program : {"/sbin/reboot", "/sbin/vrx_reboot", "/usr/sbin/reboot"}) {
            Desk desk;
            const std::string missing = desk.run({std::string(call) + program})[0];
            EXPECT_TRUE(missing == "2" || missing == "ENOENT") << call << program << missing;
            desk.write(program[1] == 'u' ? program + 4 : program, "#!/bin/sh\nexit 41\n", 0755);
            EXPECT_EQ("41", desk.run({std::string(call) + program})[0]) << call << program;
        }
    }
}

TEST(AProgram, ThatRebootsIsNeverRunWithoutARoot) {
    for (const char* program : {"/sbin/reboot", "/sbin/vrx_reboot", "/usr/sbin/reboot"}) {
        Desk desk;
        const auto result =
            desk.run({std::string("execve:") + program, std::string("spawn:") + program},
                     {{"VIRTUAL_DEVICE_ROOT", ""}});
        EXPECT_EQ("2", result[0]);
        EXPECT_EQ("ENOENT", result[1]);
        EXPECT_EQ(2U, desk.records({program, "\"mapped\":null", "ENOENT"}).size());
    }
}

TEST(AProgram, ThatIsRunIsOnTheDeskAsWell) {
    if (getenv("BOOTLUME_EMULATED") != nullptr) {
        GTEST_SKIP() << "under emulation: the shell is the host's, which cannot load the library";
    }
    Desk desk;
    desk.write("/sbin/vrx_reboot", "#!/bin/sh\n/sbin/reboot\nexit $?\n", 0755);
    EXPECT_EQ("127", desk.run({"execve:/sbin/vrx_reboot"})[0]);
    desk.write("/sbin/reboot", "#!/bin/sh\nread line < /opt/userdata/code\nexit $line\n", 0755);
    desk.write("/opt/userdata/code", "42\n");
    EXPECT_EQ("42", desk.run({"execve:/sbin/vrx_reboot"})[0]);
}

TEST(AProgram, IsRecordedThoughItsChildClosedEveryDescriptor) {
    Desk desk;
    desk.run({"execve:/sbin/reboot"});
    EXPECT_EQ(1U,
              desk.records({"\"call\":\"execve\"", "\"path\":\"/sbin/reboot\"", "ENOENT"}).size());
}

TEST(AMachine, IsNeverRebooted) {
    Desk desk;
    EXPECT_EQ("EPERM", desk.run({"reboot"})[0]);
    EXPECT_EQ("EPERM", desk.run({"reboot"}, {{"VIRTUAL_DEVICE_ROOT", ""}})[0]);
}

TEST(AMachine, IsSeenAsItIsWithoutARoot) {
    Desk desk;
    const auto result = desk.run({"open", "path:access:" + CONFIG, "path:access:/dev/null"},
                                 {{"VIRTUAL_DEVICE_ROOT", ""}});
    EXPECT_EQ("ENOENT", result[0]);
    EXPECT_EQ("ENOENT", result[1]);
    EXPECT_EQ("0", result[2]);
}

TEST(AChild, StartsWithoutTheDeviceOfItsParent) {
    Desk desk;
    const auto result =
        desk.run({"open", "format", "buffers:2", "map:0", "map:1", "queue:1", "on", "child-closes",
                  "flip:3", "child-opens", "off", "buffers:0", "child-opens", "end"});
    EXPECT_EQ("0", result[7]);
    EXPECT_EQ("0", result[8]) << "the stream goes on";
    EXPECT_EQ("16", result[9]) << "EBUSY: the parent has the device";
    EXPECT_EQ("0", result[12]);
    EXPECT_EQ(0U, desk.records({"\"call\":\"close\""}).size()) << "a copy is no device";
    EXPECT_EQ(0U, desk.records({"\"call\":\"munmap\""}).size());
}

TEST(AProcess, IsBusyForAnotherThatHasTheDevice) {
    Desk desk;
    desk.start({"open", "buffers:2", "wait"});
    ASSERT_TRUE(desk::eventually([&] { return !desk.records({"VIDIOC_REQBUFS"}).empty(); }));
    const std::string command = std::string("LD_PRELOAD=") + PRELOAD +
                                " VIRTUAL_DEVICE_ROOT=" + desk.root() + " " + PROBE +
                                " open buffers:2";
    FILE* other = popen(command.c_str(), "r");
    char text[64] = "";
    const std::size_t size = fread(text, 1, sizeof(text) - 1, other);
    pclose(other);
    EXPECT_EQ("open 0\nbuffers:2 EBUSY\n", std::string(text, size));
    desk.finish();
}

TEST(AProcess, KeepsNoDescriptorOfADeviceThatItClosed) {
    Desk desk;
    const Words once = {"open", "buffers:2", "map:0", "unmap:0", "close", "descriptors"};
    Words words;
    for (int i = 0; i < 3; ++i) {
        words.insert(words.end(), once.begin(), once.end());
    }
    const auto result = desk.run(words);
    ASSERT_NE("", result[17]);
    EXPECT_EQ(result[5], result[17]);
}

TEST(AProcess, ClosesTheDeviceInARangeAndKeepsTheLog) {
    Desk desk;
    const auto result = desk.run({"open", "buffers:2", "close-range", "open", "buffers:2"});
    EXPECT_EQ("0", result[2]);
    EXPECT_EQ("2", result[4]) << "the range closed the first opening";
    EXPECT_EQ(2U, desk.records({"VIDIOC_REQBUFS"}).size());
}
