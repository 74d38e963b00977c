#include "settings_file.h"

#include "support/scratch_file.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

std::size_t s_mostAtOnce = SIZE_MAX; ///< what one call reads
bool s_interrupts = false;           ///< the next call is interrupted
bool s_forbids = false;              ///< the kind of a file cannot be asked for

class ASettingsFile : public testing::Test {
protected:
    ~ASettingsFile() override {
        s_mostAtOnce = SIZE_MAX;
        s_interrupts = false;
        s_forbids = false;
    }

    std::string read(std::size_t size, std::int64_t place = 0) const {
        const brem::SettingsFile settings(file.path().c_str());
        std::string text(size, '\0');
        text.resize(settings.read(text.data(), text.size(), place));
        return text;
    }

    /// Reads with and without being told of the file's kind. Where one waits, the test is ended.
    std::string readBothWays() const {
        alarm(20);
        std::string text = read(100);
        s_forbids = true;
        text += read(100);
        alarm(0);
        return text;
    }

    ScratchFile file;
};

TEST_F(ASettingsFile, IsReadFromAnyPlaceToItsEnd) {
    file.write("0123456789");
    EXPECT_EQ(read(4), "0123");
    EXPECT_EQ(read(4, 3), "3456");
    EXPECT_EQ(read(4, 8), "89");
    EXPECT_EQ(read(4, 10), "");
    EXPECT_EQ(read(4, 99), "");
}

TEST_F(ASettingsFile, GoesOnBehindAShortRead) {
    file.write("0123456789");
    s_mostAtOnce = 3;
    EXPECT_EQ(read(100), "0123456789");
    EXPECT_EQ(read(5, 4), "45678");
}

TEST_F(ASettingsFile, GoesOnBehindAnInterruptedRead) {
    file.write("0123456789");
    s_interrupts = true;
    EXPECT_EQ(read(100), "0123456789");
    EXPECT_FALSE(s_interrupts);
}

TEST_F(ASettingsFile, IsReadWhereItsKindMayNotBeAskedFor) {
    file.write("0123456789");
    s_forbids = true;
    EXPECT_EQ(read(100), "0123456789");
}

TEST_F(ASettingsFile, IsEmptyWhereThereIsNone) {
    EXPECT_EQ(readBothWays(), "");
}

TEST_F(ASettingsFile, IsEmptyWhereAFolderLies) {
    ASSERT_EQ(mkdir(file.path().c_str(), 0755), 0);
    EXPECT_EQ(readBothWays(), "");
}

TEST_F(ASettingsFile, IsEmptyWhereADeviceWithoutAnEndLies) {
    ASSERT_EQ(symlink("/dev/zero", file.path().c_str()), 0);
    EXPECT_EQ(readBothWays(), "");
}

TEST_F(ASettingsFile, IsEmptyWhereATerminalLies) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(unlockpt(terminal), 0);
    char name[64] = "";
    ASSERT_EQ(ptsname_r(terminal, name, sizeof name), 0);
    ASSERT_EQ(symlink(name, file.path().c_str()), 0);
    EXPECT_EQ(readBothWays(), "");
    close(terminal);
}

TEST_F(ASettingsFile, IsEmptyWhereAPipeLiesAndTakesNothingFromIt) {
    ASSERT_EQ(mkfifo(file.path().c_str(), 0600), 0);
    EXPECT_EQ(readBothWays(), "");
    const int pipe = open(file.path().c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(write(pipe, "text", 4), 4);
    EXPECT_EQ(readBothWays(), "");
    char left[8] = "";
    EXPECT_EQ(::read(pipe, left, sizeof left), 4);
    close(pipe);
}

TEST_F(ASettingsFile, MayBeLongerThanA32BitNumberTells) {
    file.write("begin");
    ASSERT_EQ(truncate(file.path().c_str(), 5'000'000'000), 0); // a hole: nothing is written
    const int descriptor = open(file.path().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_EQ(write(descriptor, "end", 3), 3);
    close(descriptor);
    EXPECT_EQ(read(5), "begin");
    EXPECT_EQ(read(100, 5'000'000'000), "end");
}

} // namespace

// These stand in front of the system's.
extern "C" {
int fstat(int descriptor, struct stat* found) noexcept {
    if (s_forbids) {
        errno = EPERM;
        return -1;
    }
    return fstatat(descriptor, "", found, AT_EMPTY_PATH);
}

ssize_t pread(int descriptor, void* bytes, size_t size, off_t place) {
    if (s_interrupts) {
        s_interrupts = false;
        errno = EINTR;
        return -1;
    }
    const iovec room{bytes, std::min(size, s_mostAtOnce)};
    return preadv(descriptor, &room, 1, place);
}
}
