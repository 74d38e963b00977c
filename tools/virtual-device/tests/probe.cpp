// A program for the tests to run on the virtual device: it does what its arguments say, one after
// the other, and writes one line "word result" for each, with the errno's name as the result of a
// failure.
#include "contract_device.h"

#include <cstring>
#include <dirent.h>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <sys/inotify.h>
#include <sys/reboot.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <vector>

// What fortified programs call; no header declares them without fortification.
extern "C" {
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int folder, const char* path, int flags);
int __openat64_2(int folder, const char* path, int flags);
}

namespace {

using contract::Device;
using contract::Mapping;

std::unique_ptr<Device> device;
std::map<std::uint32_t, std::unique_ptr<Mapping>> mappings;

/// For the value that a call has just returned.
std::string result(int value) {
    return value >= 0 ? std::to_string(value) : strerrorname_np(errno);
}

std::string outcome(int error) {
    return error == 0 ? "0" : strerrorname_np(error);
}

std::string openDevice(int flags) {
    device.reset();
    device = std::make_unique<Device>(flags);
    return device->fd() >= 0 ? "0" : strerrorname_np(errno);
}

std::string setFormat() {
    v4l2_format format{};
    device->getFormat(format);
    format.fmt.pix.width = 480;
    format.fmt.pix.height = 800;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_RGB565;
    if (const int error = device->call(VIDIOC_S_FMT, &format)) {
        return outcome(error);
    }
    const v4l2_pix_format& pix = format.fmt.pix;
    return std::to_string(pix.width) + "x" + std::to_string(pix.height) + "," +
           std::to_string(pix.bytesperline) + "," + std::to_string(pix.sizeimage);
}

std::string requestBuffers(std::uint32_t count) {
    const int error = device->requestBuffers(count);
    return error == 0 ? std::to_string(count) : outcome(error);
}

std::string mapBuffer(std::uint32_t index) {
    v4l2_buffer about{};
    if (const int error = device->query(index, about)) {
        return outcome(error);
    }
    mappings[index] = std::make_unique<Mapping>(*device, about.m.offset, about.length);
    return outcome(mappings[index]->error());
}

std::string dequeue() {
    std::uint32_t index = 0;
    const int error = device->dequeue(index);
    return error == 0 ? std::to_string(index) : outcome(error);
}

/// Flips while `goOn` says so, with every byte of the n-th picture of the process equal to n + 1.
std::string flipWhile(const std::function<bool()>& goOn) {
    static std::uint32_t n = 0;
    static std::uint32_t held = 0;
    while (goOn()) {
        ++n;
        std::memset(mappings[held]->bytes(), int((n + 1) % 256), mappings[held]->length());
        if (const int error = device->queue(held)) {
            return outcome(error);
        }
        if (const int error = device->dequeue(held)) {
            return outcome(error);
        }
    }
    return "0";
}

std::string flip(std::uint32_t count) {
    return flipWhile([&count] { return count-- > 0; });
}

std::string flipUntilTold() {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return flipWhile([&input] { return ::poll(&input, 1, 0) == 0; });
}

/// What a descriptor holds, which is closed, or the errno's name.
std::string content(int fd) {
    if (fd < 0) {
        return strerrorname_np(errno);
    }
    char text[64] = "";
    const ssize_t size = ::read(fd, text, sizeof(text) - 1);
    ::close(fd);
    return size >= 0 ? std::string(text) : strerrorname_np(errno);
}

std::string content(std::FILE* stream) {
    if (stream == nullptr) {
        return strerrorname_np(errno);
    }
    char text[64] = "";
    std::fgets(text, sizeof(text), stream);
    std::fclose(stream);
    return text;
}

std::string streamContent(const char* path) {
    std::ifstream stream(path);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

const std::map<std::string, std::string (*)(const char*)> PATH_CALLS = {
    {"open", [](const char* p) { return content(::open(p, O_RDONLY)); }},
    {"open64", [](const char* p) { return content(::open64(p, O_RDONLY)); }},
    {"openat", [](const char* p) { return content(::openat(AT_FDCWD, p, O_RDONLY)); }},
    {"openat64", [](const char* p) { return content(::openat64(AT_FDCWD, p, O_RDONLY)); }},
    {"__open_2", [](const char* p) { return content(::__open_2(p, O_RDONLY)); }},
    {"__open64_2", [](const char* p) { return content(::__open64_2(p, O_RDONLY)); }},
    {"__openat_2", [](const char* p) { return content(::__openat_2(AT_FDCWD, p, O_RDONLY)); }},
    {"__openat64_2", [](const char* p) { return content(::__openat64_2(AT_FDCWD, p, O_RDONLY)); }},
    {"fopen", [](const char* p) { return content(std::fopen(p, "r")); }},
    {"fopen64", [](const char* p) { return content(::fopen64(p, "r")); }},
    {"freopen",
     [](const char* p) { return content(std::freopen(p, "r", std::fopen("/dev/null", "r"))); }},
    {"freopen64",
     [](const char* p) { return content(::freopen64(p, "r", std::fopen("/dev/null", "r"))); }},
    {"ifstream", streamContent},
    {"stat",
     [](const char* p) {
         struct stat about {};
         return result(::stat(p, &about));
     }},
    {"stat64",
     [](const char* p) {
         struct stat64 about {};
         return result(::stat64(p, &about));
     }},
    {"lstat",
     [](const char* p) {
         struct stat about {};
         return result(::lstat(p, &about));
     }},
    {"lstat64",
     [](const char* p) {
         struct stat64 about {};
         return result(::lstat64(p, &about));
     }},
    {"fstatat",
     [](const char* p) {
         struct stat about {};
         return result(::fstatat(AT_FDCWD, p, &about, 0));
     }},
    {"fstatat64",
     [](const char* p) {
         struct stat64 about {};
         return result(::fstatat64(AT_FDCWD, p, &about, 0));
     }},
    {"statx",
     [](const char* p) {
         struct statx about {};
         return result(::statx(AT_FDCWD, p, 0, STATX_SIZE, &about));
     }},
    {"access", [](const char* p) { return result(::access(p, R_OK)); }},
    {"faccessat", [](const char* p) { return result(::faccessat(AT_FDCWD, p, R_OK, 0)); }},
    {"chmod", [](const char* p) { return result(::chmod(p, 0600)); }},
    {"creat",
     [](const char* p) {
         const int fd = ::creat(p, 0600);
         return result(fd >= 0 ? ::close(fd) : fd);
     }},
    {"inotify",
     [](const char* p) { return result(::inotify_add_watch(::inotify_init(), p, IN_MODIFY)); }},
    {"unlink", [](const char* p) { return result(::unlink(p)); }},
    {"unlinkat", [](const char* p) { return result(::unlinkat(AT_FDCWD, p, 0)); }},
};

sockaddr_un address(const std::string& path) {
    sockaddr_un made{};
    made.sun_family = AF_UNIX;
    path.copy(made.sun_path, sizeof(made.sun_path) - 1);
    return made;
}

/// Binds a socket, sends it one datagram with sendto and one over a connection, and reads both.
std::string talk(const std::string& path) {
    const sockaddr_un to = address(path);
    const auto* generic = reinterpret_cast<const sockaddr*>(&to);
    const int server = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    const int client = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    if (::bind(server, generic, sizeof(to)) != 0 ||
        ::sendto(client, "one,", 4, 0, generic, sizeof(to)) != 4 ||
        ::connect(client, generic, sizeof(to)) != 0 || ::send(client, "two", 3, 0) != 3) {
        return strerrorname_np(errno);
    }
    char text[16] = "";
    ssize_t size = ::read(server, text, 4);
    size += ::read(server, text + size, 8);
    return std::string(text, std::size_t(size));
}

std::string statusOf(pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? std::to_string(WEXITSTATUS(status)) : "signal";
}

/// Forks, closes what a careful launcher closes, and executes; the child's exit status or errno.
std::string execute(const std::string& path, bool withEnvironment) {
    const pid_t child = ::fork();
    if (child == 0) {
        char* arguments[] = {const_cast<char*>(path.c_str()), nullptr};
        ::close_range(3, ~0U, 0);
        if (withEnvironment) {
            ::execve(path.c_str(), arguments, environ);
        } else {
            ::execv(path.c_str(), arguments);
        }
        ::_exit(errno);
    }
    return statusOf(child);
}

std::string spawn(const std::string& path) {
    char* arguments[] = {const_cast<char*>(path.c_str()), nullptr};
    pid_t child = 0;
    const int error = ::posix_spawn(&child, path.c_str(), nullptr, nullptr, arguments, environ);
    return error == 0 ? statusOf(child) : outcome(error);
}

/// Opens the device in the child of a fork and says what the child got.
std::string openInChild() {
    const pid_t child = ::fork();
    if (child == 0) {
        const Device mine;
        ::_exit(mine.fd() < 0 ? 99 : mine.buffers(2));
    }
    return statusOf(child);
}

std::string closeInChild() {
    const pid_t child = ::fork();
    if (child == 0) {
        for (auto& mapping : mappings) {
            mapping.second->unmap();
        }
        ::_exit(::close(device->fd()) == 0 ? 0 : 1);
    }
    return statusOf(child);
}

std::size_t openDescriptors() {
    std::size_t count = 0;
    DIR* folder = ::opendir("/proc/self/fd");
    while (::readdir(folder) != nullptr) {
        ++count;
    }
    ::closedir(folder);
    return count;
}

std::string sleepFor(long milliseconds) {
    const timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000};
    return result(::nanosleep(&time, nullptr));
}

/// Again and again: one may come before the call that it is meant for.
std::string alarmEvery(unsigned milliseconds) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGALRM, &action, nullptr);
    ::ualarm(milliseconds * 1000, milliseconds * 1000);
    return "0";
}

std::uint32_t number(const std::string& text) {
    return static_cast<std::uint32_t>(std::stoul(text));
}

const std::map<std::string, std::function<std::string(const std::string&)>> WORDS = {
    {"open", [](const std::string&) { return openDevice(O_RDWR); }},
    {"open-nonblocking", [](const std::string&) { return openDevice(O_RDWR | O_NONBLOCK); }},
    {"close", [](const std::string&) { return result(::close(device->fd())); }},
    {"capabilities",
     [](const std::string&) {
         v4l2_capability caps{};
         return outcome(device->call(VIDIOC_QUERYCAP, &caps));
     }},
    {"unknown",
     [](const std::string&) {
         int value = 0;
         return outcome(device->call(_IOWR('V', 250, int), &value));
     }},
    {"nothing", [](const std::string&) { return outcome(device->call(VIDIOC_QUERYCAP, nullptr)); }},
    {"format", [](const std::string&) { return setFormat(); }},
    {"buffers", [](const std::string& n) { return requestBuffers(number(n)); }},
    {"map", [](const std::string& n) { return mapBuffer(number(n)); }},
    {"unmap", [](const std::string& n) { return outcome(mappings[number(n)]->unmap()); }},
    {"queue", [](const std::string& n) { return outcome(device->queue(number(n))); }},
    {"dequeue", [](const std::string&) { return dequeue(); }},
    {"on", [](const std::string&) { return outcome(device->streamOn()); }},
    {"off", [](const std::string&) { return outcome(device->streamOff()); }},
    {"flip", [](const std::string& n) { return flip(number(n)); }},
    {"flip-until-told", [](const std::string&) { return flipUntilTold(); }},
    {"talk", talk},
    {"execve", [](const std::string& path) { return execute(path, true); }},
    {"execv", [](const std::string& path) { return execute(path, false); }},
    {"spawn", spawn},
    {"reboot", [](const std::string&) { return result(::reboot(RB_DISABLE_CAD)); }},
    {"child-opens", [](const std::string&) { return openInChild(); }},
    {"child-closes", [](const std::string&) { return closeInChild(); }},
    {"close-range", [](const std::string&) { return result(::close_range(3, ~0U, 0)); }},
    {"descriptors", [](const std::string&) { return std::to_string(openDescriptors()); }},
    {"sleep", [](const std::string& n) { return sleepFor(long(number(n))); }},
    {"alarm", [](const std::string& n) { return alarmEvery(number(n)); }},
    {"wait",
     [](const std::string&) {
         char byte = 0;
         return std::to_string(::read(STDIN_FILENO, &byte, 1));
     }},
};

std::string perform(const std::string& word) {
    const std::size_t colon = word.find(':');
    const std::string name = word.substr(0, colon);
    const std::string rest = colon != std::string::npos ? word.substr(colon + 1) : "";
    if (name == "path") {
        const std::size_t second = rest.find(':');
        return PATH_CALLS.at(rest.substr(0, second))(rest.substr(second + 1).c_str());
    }
    return WORDS.at(name)(rest);
}

} // namespace

int main(int count, char** words) {
    for (int i = 1; i < count; ++i) {
        if (std::string(words[i]) == "end") {
            ::_exit(0);
        }
        // First the work: a fork must not find half a line in the buffer.
        const std::string done = perform(words[i]);
        std::cout << words[i] << " " << done << std::endl;
    }
    return 0;
}
