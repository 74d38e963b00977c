#include "boost/process/detail/file_handle.h"
#include "boost/process/detail/systembuf.h"
#include "boost/process/operations.h"
#include "support/isolated.h"
#include "support/waiting.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <thread>

namespace process = boost::process;
using Handle = process::detail::file_handle;
using process::detail::systembuf;

namespace {

/// A pipe whose ends the test may close.
struct TestPipe {
    TestPipe() {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        rend = Handle(ends[0]);
        wend = Handle(ends[1]);
    }

    void put(const std::string& text) const {
        EXPECT_EQ(write(wend.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    std::string take(std::size_t most = 1 << 20) const {
        std::string text(most, '\0');
        const ssize_t length = read(rend.get(), text.data(), most);
        text.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
        return text;
    }
    /// Leaves room for this many pages only, and makes a write that finds no room fail.
    void narrow(int pages) const {
        const int size = fcntl(wend.get(), F_SETPIPE_SZ, pages * 4096);
        ASSERT_EQ(size, pages * 4096);
        fcntl(wend.get(), F_SETFL, O_NONBLOCK);
    }

    Handle rend;
    Handle wend;
};

/// Shows what is behind the stream.
class OpenBuffer : public systembuf {
public:
    using systembuf::systembuf;
    std::streamsize unread() const { return egptr() - gptr(); }
    std::streamsize pending() const { return pptr() - pbase(); }
    std::streamsize room() const { return epptr() - pptr(); }
};

std::atomic<int> interruptions{0};

/// Runs the body on a thread that is interrupted all the time, and `release` once that has happened
/// a hundred times.
void interrupted(const std::function<void()>& body, const std::function<void()>& release) {
    struct sigaction action {};
    action.sa_handler = [](int) { ++interruptions; };
    sigaction(SIGUSR1, &action, nullptr); // no SA_RESTART: calls fail with EINTR
    interruptions = 0;
    std::atomic<bool> begun{false};
    std::thread thread([&] {
        begun = true;
        body();
    });
    EXPECT_TRUE(eventually([&] { return begun.load(); }));
    EXPECT_TRUE(eventually([&] {
        pthread_kill(thread.native_handle(), SIGUSR1);
        return interruptions >= 100;
    }));
    release();
    thread.join();
    signal(SIGUSR1, SIG_DFL);
}

TEST(ASystemBuffer, ReadsWhatIsThereWithoutWaitingForMore) {
    TestPipe pipe;
    OpenBuffer buffer(pipe.rend.get());
    pipe.put("abc");
    EXPECT_EQ(buffer.sgetc(), 'a');
    EXPECT_EQ(buffer.unread(), 3);
    pipe.put("de");
    EXPECT_EQ(buffer.sbumpc(), 'a');
    EXPECT_EQ(buffer.sbumpc(), 'b');
    EXPECT_EQ(buffer.sbumpc(), 'c');
    EXPECT_EQ(buffer.sbumpc(), 'd');
    EXPECT_EQ(buffer.sbumpc(), 'e');
    pipe.wend.close();
    EXPECT_EQ(buffer.sgetc(), std::char_traits<char>::eof());
}

TEST(ASystemBuffer, ReadsNoMoreThanItsSizeAtOnce) {
    TestPipe pipe;
    OpenBuffer standard(pipe.rend.get());
    pipe.put(std::string(10000, 'x'));
    standard.sgetc();
    EXPECT_EQ(standard.unread(), 8192);
    OpenBuffer small(pipe.rend.get(), 5);
    small.sgetc();
    EXPECT_EQ(small.unread(), 5);
}

TEST(ASystemBuffer, KeepsAByteThatLooksLikeTheEnd) {
    TestPipe pipe;
    systembuf buffer(pipe.rend.get());
    pipe.put("\xff");
    EXPECT_EQ(buffer.sbumpc(), 255);
}

TEST(ASystemBuffer, TakesAReadErrorForTheEnd) {
    const Handle folder(open("/", O_RDONLY | O_DIRECTORY));
    systembuf buffer(folder.get());
    EXPECT_EQ(buffer.sgetc(), std::char_traits<char>::eof());
}

TEST(ASystemBuffer, DoesNotTakeAnInterruptionForTheEnd) {
    TestPipe pipe;
    systembuf buffer(pipe.rend.get());
    interrupted([&] { EXPECT_EQ(buffer.sgetc(), 'a'); }, [&] { pipe.put("a"); });
}

TEST(ASystemBuffer, WritesOutWhenItIsFull) {
    TestPipe pipe;
    OpenBuffer buffer(pipe.wend.get(), 4);
    fcntl(pipe.rend.get(), F_SETFL, O_NONBLOCK);
    buffer.sputn("abc", 3);
    EXPECT_EQ(pipe.take(), "");
    EXPECT_EQ(buffer.pending(), 3);
    EXPECT_EQ(buffer.sputc('d'), 'd');
    EXPECT_EQ(buffer.pending(), 0);
    EXPECT_EQ(pipe.take(), "abcd");
    EXPECT_EQ(buffer.sputn("efghijklm", 9), 9);
    EXPECT_EQ(buffer.pending(), 1);
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(pipe.take(), "efghijklm");
    EXPECT_EQ(buffer.sputc('\xff'), 255);
}

TEST(ASystemBuffer, WritesEachCharacterWhereItHoldsOne) {
    TestPipe pipe;
    OpenBuffer buffer(pipe.wend.get(), 1);
    EXPECT_EQ(buffer.sputn("abc", 3), 3);
    EXPECT_EQ(pipe.take(), "abc");
}

TEST(ASystemBuffer, ReportsAWriteThatFallsShort) {
    TestPipe pipe;
    pipe.narrow(2);
    pipe.put(std::string(4096 + 100, 'x')); // leaves less room than is pending
    OpenBuffer buffer(pipe.wend.get());
    EXPECT_EQ(buffer.sputn(std::string(8000, 'y').data(), 8000), 8000);
    EXPECT_EQ(buffer.pubsync(), -1);
    EXPECT_EQ(buffer.pending(), 8000);
}

TEST(ASystemBuffer, ReportsAWriteThatFails) {
    TestPipe pipe;
    OpenBuffer buffer(pipe.rend.get(), 4); // not open for writing
    EXPECT_EQ(buffer.sputn("abc", 3), 3);
    EXPECT_EQ(buffer.sputc('d'), std::char_traits<char>::eof());
    EXPECT_EQ(buffer.pubsync(), -1);
}

TEST(ASystemBuffer, StaysWithinItsBufferAfterAWriteThatFailed) {
    TestPipe pipe;
    OpenBuffer buffer(pipe.rend.get(), 4);
    std::ostream stream(&buffer);
    stream << "abcdef";
    EXPECT_TRUE(stream.bad());
    for (int i = 0; i < 3; ++i) {
        stream.clear();
        stream << "more than it holds";
        EXPECT_TRUE(stream.bad());
        EXPECT_GE(buffer.room(), 0);
        EXPECT_LE(buffer.pending(), 4);
    }
}

TEST(ASystemBuffer, GoesOnOnceThereIsRoomAgain) {
    TestPipe pipe;
    pipe.narrow(1);
    pipe.put(std::string(4096, 'x'));
    OpenBuffer buffer(pipe.wend.get(), 4);
    std::ostream stream(&buffer);
    stream << "abcd";
    EXPECT_TRUE(stream.bad());
    EXPECT_EQ(pipe.take(), std::string(4096, 'x'));
    stream.clear();
    stream << "d" << std::flush;
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(pipe.take(), "abcd");
}

TEST(ASystemBufferDeathTest, NeedsADescriptorAndASize) {
    EXPECT_DEATH(systembuf(-1), "Assertion `handle_ >= 0' failed");
    EXPECT_DEATH(systembuf(0, 0), "Assertion `bufsize_ > 0' failed");
}

TEST(AFileHandle, OwnsItsDescriptor) {
    TestPipe pipe;
    const int descriptor = dup(pipe.rend.get());
    {
        const Handle handle(descriptor);
        EXPECT_EQ(handle.get(), descriptor);
    }
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
    Handle released(dup(pipe.rend.get()));
    const int free = released.release();
    EXPECT_FALSE(released.valid());
    EXPECT_NE(fcntl(free, F_GETFD), -1);
    Handle target(free);
    target = Handle(dup(pipe.rend.get()));
    EXPECT_EQ(fcntl(free, F_GETFD), -1) << "what it owned before was left open";
}

TEST(AFileHandle, MovesToAnotherNumber) {
    isolated([] {
        TestPipe pipe;
        const int before = pipe.wend.get();
        EXPECT_EQ(pipe.wend.posix_remap(200), nullptr);
        EXPECT_EQ(pipe.wend.get(), 200);
        EXPECT_EQ(fcntl(before, F_GETFD), -1);
        EXPECT_EQ(pipe.wend.posix_remap(200), nullptr);
        EXPECT_EQ(pipe.wend.get(), 200);
        EXPECT_EQ(Handle::posix_dup(200, 201), nullptr);
        EXPECT_EQ(write(201, "a", 1), 1);
        EXPECT_EQ(pipe.take(), "a");
    });
}

TEST(AFileHandle, SaysWhichStepFailed) {
    TestPipe pipe;
    EXPECT_STREQ(Handle::posix_dup(pipe.rend.get(), -1),
                 "boost::process::detail::file_handle::posix_dup: dup2(2) failed");
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_STREQ(pipe.rend.posix_remap(-1),
                 "boost::process::detail::file_handle::posix_remap: dup2(2) failed");
    EXPECT_EQ(errno, EBADF);
}

TEST(AFileHandleDeathTest, IsNotAskedWhileItIsEmpty) {
    EXPECT_DEATH(Handle(-1), "Assertion `handle_ != invalid_value\\(\\)' failed");
    Handle empty;
    EXPECT_DEATH(empty.get(), "Assertion `handle_ != invalid_value\\(\\)' failed");
    EXPECT_DEATH(empty.release(), "Assertion `handle_ != invalid_value\\(\\)' failed");
    EXPECT_DEATH(empty.close(), "Assertion `handle_ != invalid_value\\(\\)' failed");
}

TEST(AStreamToAChild, IsWrittenOutAtItsEnd) {
    TestPipe pipe;
    const int reader = dup(pipe.rend.get());
    const Handle end(reader);
    { process::postream(std::move(pipe.wend)) << "pending"; }
    char text[16];
    EXPECT_EQ(read(reader, text, sizeof text), 7);
    EXPECT_EQ(read(reader, text, sizeof text), 0) << "the pipe was left open";
}

TEST(AStreamToAChild, NeverWritesToTheNextOwnerOfItsNumber) {
    isolated([] {
        signal(SIGPIPE, SIG_IGN);
        TestPipe broken;
        const int number = broken.wend.get();
        broken.rend.close();
        TestPipe other;
        fcntl(other.rend.get(), F_SETFL, O_NONBLOCK);
        {
            process::postream stream(std::move(broken.wend));
            stream << "pending";
            stream.close(); // cannot write it out
            EXPECT_TRUE(stream.bad());
            ASSERT_EQ(dup2(other.wend.get(), number), number);
            stream.clear();
            stream << "more" << std::flush;
            EXPECT_TRUE(stream.bad());
        }
        EXPECT_EQ(other.take(), "");
        EXPECT_NE(fcntl(number, F_GETFD), -1) << "it closed what is not its own";
    });
}

TEST(AStreamFromAChild, EndsThePipeWithIt) {
    isolated([] {
        signal(SIGPIPE, SIG_IGN);
        TestPipe pipe;
        { process::pistream(std::move(pipe.rend)); }
        EXPECT_EQ(write(pipe.wend.get(), "a", 1), -1);
        EXPECT_EQ(errno, EPIPE);
    });
}

/// Shows how the streams of a child are set.
struct OpenChild : process::child {
    OpenChild() : child(1) {}
    using child::set_stderr;
    using child::set_stdin;
    using child::set_stdout;
};

TEST(AChildDeathTest, HasNoStreamWithoutADescriptor) {
    OpenChild child;
    EXPECT_DEATH(child.set_stdin(Handle()), "Assertion `fhstdin.valid\\(\\)' failed");
    EXPECT_DEATH(child.set_stdout(Handle()), "Assertion `fhstdout.valid\\(\\)' failed");
    EXPECT_DEATH(child.set_stderr(Handle()), "Assertion `fhstderr.valid\\(\\)' failed");
}

bool isStopped(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string stat;
    std::getline(file, stat);
    return stat.find(") T ") != std::string::npos;
}

TEST(AChild, IsWaitedForThroughInterruptionsAndWhileItIsStopped) {
    process::basic_context context;
    context.stdin_behavior = process::stream_behavior::capture;
    process::posix_child child =
        process::launch("/bin/sh", {"sh", "-c", "read line; kill -STOP $$; exit 7"}, context);
    interrupted([&] { EXPECT_EQ(child.wait().exit_status(), 7); },
                [&] {
                    child.get_stdin().close();
                    EXPECT_TRUE(eventually([&] { return isStopped(child.id()); }));
                    kill(child.id(), SIGCONT);
                });
}

} // namespace
