// What the screen file tells other programs.
#include "../screen.h"
#include "desk.h"

#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>
#include <sys/mman.h>
#include <unistd.h>

using namespace virtual_device;
using desk::Desk;
using desk::eventually;
using desk::numberIn;
using desk::Words;

namespace {

constexpr std::size_t PAGE_BYTES = 480 * 800 * 2;

/// The screen of a desk, mapped as soon as it is there.
class Reader {
public:
    explicit Reader(const Desk& desk) : m_path(desk.path("/screen")) {}
    ~Reader() {
        if (m_file != MAP_FAILED) {
            ::munmap(m_file, SCREEN_FILE_BYTES);
        }
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    const ScreenHeader* header() {
        if (m_file == MAP_FAILED) {
            map();
        }
        return m_file != MAP_FAILED && isScreen(m_file) ? static_cast<ScreenHeader*>(m_file)
                                                        : nullptr;
    }
    std::uint64_t newest() { return header() != nullptr ? header()->frame.load() : 0; }
    bool streaming() { return header() != nullptr && header()->streaming == 1; }
    std::optional<ScreenFrame> copy(std::uint64_t number) {
        ScreenFrame frame{};
        if (header() == nullptr ||
            !copyScreenFrame(m_file, number, frame, pixels.data(), pixels.size())) {
            return std::nullopt;
        }
        return frame;
    }
    bool uniform() const {
        // Each byte equals its neighbour; also quick in an instrumented test.
        return std::memcmp(pixels.data(), pixels.data() + 1, pixels.size() - 1) == 0;
    }

    std::vector<unsigned char> pixels = std::vector<unsigned char>(PAGE_BYTES);

private:
    void map() {
        const int fd = ::open(m_path.c_str(), O_RDONLY);
        if (fd >= 0 && ::lseek(fd, 0, SEEK_END) == off_t(SCREEN_FILE_BYTES)) {
            m_file = ::mmap(nullptr, SCREEN_FILE_BYTES, PROT_READ, MAP_SHARED, fd, 0);
        }
        if (fd >= 0) {
            ::close(fd);
        }
    }

    std::string m_path;
    void* m_file = MAP_FAILED;
};

Words session(const std::string& flips, const Words& more) {
    Words words = {"open",  "format",  "buffers:2", "map:0",
                   "map:1", "queue:1", "on",        "flip:" + flips};
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

} // namespace

TEST(AScreen, ShowsEachPictureWholeAndOnce) {
    Desk desk;
    Reader reader(desk);
    desk.start(session("5", {"wait"}));
    ASSERT_TRUE(eventually([&] { return reader.newest() == 6; }));
    for (std::uint64_t number = 1; number <= 6; ++number) {
        const auto frame = reader.copy(number);
        ASSERT_TRUE(frame) << number;
        EXPECT_EQ(480U, frame->width);
        EXPECT_EQ(800U, frame->height);
        EXPECT_EQ(960U, frame->rowBytes);
        EXPECT_EQ(number % 2, frame->buffer);
        EXPECT_EQ(1U, frame->stream);
        EXPECT_TRUE(reader.uniform());
        EXPECT_EQ(number == 1 ? 0 : number, reader.pixels[0]);
    }
    EXPECT_FALSE(reader.copy(7));
    EXPECT_FALSE(reader.copy(0));
    desk.finish();
}

TEST(AScreen, IsNeverTornHoweverFastItsPicturesCome) {
    Desk desk;
    Reader reader(desk);
    desk.start(session("10", {"flip-until-told"}), {{"VIRTUAL_DEVICE_REFRESH", "0"}});
    int whole = 0;
    int torn = 0;
    EXPECT_TRUE(eventually([&] {
        const std::uint64_t number = reader.newest();
        // The newest, and the oldest that may still be there: the one that the writer takes next.
        for (const std::uint64_t wanted : {number, number - 7}) {
            if (number < 10 || !reader.copy(wanted)) {
                continue;
            }
            ++whole;
            torn += reader.uniform() && reader.pixels[0] == wanted % 256 ? 0 : 1;
        }
        return whole >= 200;
    }));
    EXPECT_EQ(0, torn);
    EXPECT_EQ(0, desk.finish().status);
}

TEST(AScreen, IsOnWhileTheDeviceStreams) {
    Desk desk;
    Reader reader(desk);
    EXPECT_FALSE(reader.streaming());
    desk.start(session("2", {"wait", "off", "end"}));
    ASSERT_TRUE(eventually([&] { return reader.streaming() && reader.newest() == 3; }));
    EXPECT_EQ(std::uint32_t(desk.pid()), reader.header()->pid);
    const std::uint32_t before = reader.header()->changes;
    desk.finish();
    EXPECT_FALSE(reader.streaming());
    EXPECT_EQ(before + 1, reader.header()->changes);
}

TEST(AScreen, GoesOffWithTheProgramThatNeverSwitchesItOff) {
    Desk desk;
    Reader reader(desk);
    desk.run(session("2", {}));
    EXPECT_FALSE(reader.streaming());
}

TEST(AScreen, GoesOffWithTheLastUnmapAfterTheClose) {
    Desk desk;
    Reader reader(desk);
    desk.run(session("2", {"close", "unmap:0", "unmap:1", "end"}));
    EXPECT_FALSE(reader.streaming());
}

TEST(AScreen, CountsOnFromOneStartToTheNext) {
    Desk desk;
    Reader reader(desk);
    desk.run(session("2", {"off"}));
    ASSERT_EQ(3U, reader.newest());
    desk.run(session("1", {"off"}));
    EXPECT_EQ(5U, reader.newest());
    ASSERT_TRUE(reader.copy(5));
    EXPECT_EQ(2U, reader.copy(5)->stream);
}

TEST(AScreen, ShowsOnlyWhatTheBufferHolds) {
    Desk desk;
    Reader reader(desk);
    desk.run(session("1", {}), {{"VIRTUAL_DEVICE_FORMAT", "bytesperline=1440,sizeimage=1500"}});
    ASSERT_TRUE(reader.copy(2));
    EXPECT_EQ(2, reader.pixels[959]);
    EXPECT_EQ(2, reader.pixels[960 + 59]) << "60 bytes of the second row lie in the buffer";
    EXPECT_EQ(0, reader.pixels[960 + 60]);
    EXPECT_EQ(0, reader.pixels[PAGE_BYTES - 1]);
}

TEST(ADisplay, TakesOverOneBufferARefresh) {
    Desk desk;
    desk.run(session("10", {}), {{"VIRTUAL_DEVICE_REFRESH", "50"}});
    const auto shows = desk.records({"\"call\":\"show\""});
    ASSERT_EQ(11U, shows.size());
    const std::int64_t first = numberIn(shows.front(), "time_ns");
    // Ten refreshes lie between; a busy machine may be late to write the first one down.
    EXPECT_GE(numberIn(shows.back(), "time_ns") - first, 9 * 20000000);
    for (std::size_t i = 1; i < shows.size(); ++i) {
        EXPECT_EQ(std::int64_t(i % 2 == 0), numberIn(shows[i], "buffer"));
    }
}

TEST(ADisplay, IsLateForChosenPictures) {
    Desk desk;
    desk.run(session("3", {}),
             {{"VIRTUAL_DEVICE_REFRESH", "0"}, {"VIRTUAL_DEVICE_FAULTS", "display@3=block:80"}});
    const auto waits = desk.records({"VIDIOC_DQBUF"});
    ASSERT_EQ(3U, waits.size());
    EXPECT_GE(numberIn(waits[1], "duration_ns"), 70000000);
}

TEST(ADisplay, EndsItsWaitWhenTheDeviceIsSwitchedOff) {
    Desk desk;
    const auto result =
        desk.run(session("0", {"queue:0", "off", "queue:0"}), {{"VIRTUAL_DEVICE_REFRESH", "0.01"}});
    EXPECT_EQ("0", result[9]);
    EXPECT_EQ("0", result[10]);
    const auto offs = desk.records({"VIDIOC_STREAMOFF"});
    ASSERT_EQ(1U, offs.size());
    EXPECT_LT(numberIn(offs[0], "duration_ns"), 10000000000);
}
