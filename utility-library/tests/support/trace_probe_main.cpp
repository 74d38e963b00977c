// A program that traces as it is told: one command a line on standard input, one answer a line on
// standard error. What it hands to the system log is told there as well, in lines that begin with
// "*", and so is how the trace ends, by an object that outlives it.

#include "tracing.h"

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

// Where the address sanitizer runs, it knows what is freed.
extern "C" int __asan_address_is_poisoned(void const volatile* address) __attribute__((weak));

namespace {

using Trace::Log;
using Clock = std::chrono::steady_clock;

std::atomic<int> s_polls{0};
std::atomic<int> s_pollsToFail{0};
std::atomic<bool> s_quiet{false};
std::atomic<bool> s_storm{false};
std::vector<std::thread> s_writers;

void tell(const std::string& line) {
    const std::string text = line + "\n";
    if (write(STDERR_FILENO, text.data(), text.size()) < 0) {
        _exit(3);
    }
}

/// Outlives the trace, and tells what that leaves behind.
struct Witness {
    Witness() = default;
    ~Witness() {
        const auto time =
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - mainLeft).count();
        std::ostringstream text;
        text << "* end alive=" << Log::isAlive::s_alive
             << " watcher=" << (Log::s_traceConfigThread != nullptr)
             << " name=" << (Log::s_name != nullptr) << " freed=" << isFreed() << " us=" << time;
        tell(text.str());
    }
    bool isFreed() const {
        return name == nullptr || __asan_address_is_poisoned == nullptr ||
               __asan_address_is_poisoned(name) != 0;
    }

    const char* name = nullptr;
    Clock::time_point mainLeft;
};
__attribute__((init_priority(101))) Witness s_witness;

/// Waits until the condition holds; false where it does not within ten seconds.
bool await(const std::function<bool()>& condition) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

std::string answer(bool done) {
    return done ? "ok" : "too late";
}

std::string state() {
    std::ostringstream text;
    text << "ok " << Log::s_configuration.appName << " " << Log::level() << " "
         << Log::s_configuration.toSyslog << std::hex;
    const auto words = Log::s_configuration.masks.get();
    for (const std::uint32_t word : *words) {
        text << " " << word;
    }
    return text.str();
}

std::string name(std::istream& arguments) {
    std::string text;
    arguments >> text;
    Log::setAppName(text);
    s_witness.name = Log::s_name;
    return "ok";
}

std::string line(std::istream& arguments) {
    std::int32_t level = 0;
    std::string text;
    arguments >> level >> text;
    TRACE(level, text);
    return "ok";
}

std::string masked(std::istream& arguments) {
    std::int32_t level = 0;
    std::string text;
    arguments >> level >> text;
    TRACE_MASKED(level, Trace::TRACE_MASK_DISPATCHER, "DISPATCHER", text);
    return "ok";
}

std::string storm(std::istream& arguments) {
    int count = 0;
    arguments >> count;
    s_quiet = true;
    s_storm = true;
    for (int number = 0; number < count; ++number) {
        s_writers.emplace_back([] {
            const timespec pace{0, 200'000}; // a few thousand lines a second are enough
            while (s_storm) {
                TRACE_MASKED(Trace::LEVEL_VERBOSE, Trace::TRACE_MASK_DISPATCHER, "DISPATCHER",
                             "storm" << Trace::named("level", Log::level()));
                nanosleep(&pace, nullptr);
            }
        });
    }
    return "ok";
}

std::string calm(std::istream&) {
    s_storm = false;
    for (std::thread& writer : s_writers) {
        writer.join();
    }
    s_writers.clear();
    s_quiet = false;
    return "ok";
}

std::string awaitLevel(std::istream& arguments) {
    std::int32_t level = 0;
    arguments >> level;
    return answer(await([&] { return Log::level() == level; }));
}

/// Waits until the watcher has polled anew so many times.
std::string awaitPolls(std::istream& arguments) {
    int count = 0;
    arguments >> count;
    const int wanted = s_polls + count;
    return answer(await([&] { return s_polls >= wanted; }));
}

std::string failPolls(std::istream& arguments) {
    int count = 0;
    arguments >> count;
    s_pollsToFail = count;
    return answer(await([] { return s_pollsToFail <= 0; }));
}

std::string user(std::istream&) {
    return getuid() != 0 || setuid(65534) == 0 ? "ok" : "still root";
}

} // namespace

int main(int, char** argv) {
    Log::s_configFilePath = argv[1];
    const std::map<std::string, std::string (*)(std::istream&)> commands = {
        {"name", name},
        {"line", line},
        {"masked", masked},
        {"storm", storm},
        {"calm", calm},
        {"user", user},
        {"state", [](std::istream&) { return state(); }},
        {"await-level", awaitLevel},
        {"await-polls", awaitPolls},
        {"fail-polls", failPolls},
    };
    for (std::string text; std::getline(std::cin, text);) {
        std::istringstream arguments(text);
        std::string command;
        arguments >> command;
        tell(commands.at(command)(arguments));
    }
    s_witness.mainLeft = Clock::now();
    return 0;
}

// These stand in front of the system's. __syslog_chk is what a fortified build calls.
extern "C" {
void __syslog_chk(int priority, int flag, const char* format, ...);

void openlog(const char* ident, int option, int facility) {
    tell("* openlog " + std::string(ident) + " " + std::to_string(option) + " " +
         std::to_string(facility));
}

void closelog() {
    tell("* closelog");
}

void syslog(int priority, const char* format, ...) {
    if (!s_quiet) {
        tell("* syslog " + std::to_string(priority) + " " + format);
    }
}

void __syslog_chk(int priority, int, const char* format, ...) {
    if (!s_quiet) {
        tell("* syslog " + std::to_string(priority) + " " + format);
    }
}

int pthread_join(pthread_t thread, void** result) {
    using Join = int(pthread_t, void**);
    static const auto real = reinterpret_cast<Join*>(dlsym(RTLD_NEXT, "pthread_join"));
    const int error = real(thread, result);
    tell("* join");
    return error;
}

int poll(struct pollfd* waits, nfds_t count, int timeout) {
    ++s_polls;
    if (s_pollsToFail > 0) {
        --s_pollsToFail;
        errno = EIO;
        return -1;
    }
    const timespec time{timeout / 1000, (timeout % 1000) * 1'000'000L};
    return static_cast<int>(syscall(SYS_ppoll, waits, count, &time, nullptr, 0));
}
}
