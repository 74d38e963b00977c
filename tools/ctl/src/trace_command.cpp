#include "commands.h"

#include "trace_file.h"

#include <sys/stat.h>

#include <csignal>
#include <ctime>
#include <iostream>
#include <stdexcept>

namespace ctl {
namespace {

using Milliseconds = std::chrono::milliseconds;

/// The signals that would end this program in the middle of a wait. They are held back from the
/// time that this is made on.
class Interruptions {
public:
    Interruptions() {
        std::signal(SIGPIPE, SIG_IGN); // a reader of the output that goes is none of them
        sigemptyset(&m_signals);
        for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
            struct sigaction action {};
            sigaction(number, nullptr, &action);
            if (action.sa_handler != SIG_IGN) {
                sigaddset(&m_signals, number);
            }
        }
        sigprocmask(SIG_BLOCK, &m_signals, nullptr);
    }

    /// The signal that came within the time, or 0.
    int waitFor(Milliseconds time) const {
        const auto end = std::chrono::steady_clock::now() + time;
        for (;;) {
            const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(
                end - std::chrono::steady_clock::now());
            if (rest.count() <= 0) {
                return 0;
            }
            timespec limit{};
            limit.tv_sec = static_cast<std::time_t>(rest.count() / 1000000000);
            limit.tv_nsec = static_cast<long>(rest.count() % 1000000000);
            // A process that was stopped and goes on is woken without a signal.
            const int number = sigtimedwait(&m_signals, nullptr, &limit);
            if (number > 0) {
                return number;
            }
        }
    }

    /// Ends as if the signal had not been held back, so that the caller sees it.
    void follow(int number) const {
        std::cout.flush();
        raise(number);
        sigprocmask(SIG_UNBLOCK, &m_signals, nullptr);
    }

private:
    sigset_t m_signals{};
};

bool isThere(const std::string& path) {
    struct stat about {};
    return lstat(path.c_str(), &about) == 0;
}

void putBack(const Places& places, const TraceChange& change) {
    if (putTraceEntryBack(places.traceConfig, change)) {
        std::cout << (change.before.empty() ? NO_ENTRY : change.before) << '\n';
    } else {
        complain("the entry has been changed since, and is left as it is", EXIT_DONE);
    }
}

void set(const Places& places, const TraceWish& wish) {
    const TraceChange change = setTraceEntry(places.traceConfig, wish);
    std::cout << change.line << '\n';
    if (change.created) {
        complain(places.traceConfig +
                     " is new; a splash that runs already watches it from its next start on",
                 EXIT_DONE);
    }
}

int setForAWhile(const Places& places, const TraceWish& wish, Milliseconds time) {
    if (!isThere(places.traceConfig)) {
        return complain(places.traceConfig +
                            " is not there, so a splash that runs does not watch it; without "
                            "--for it is made, for the next start",
                        EXIT_FAILED);
    }
    const Interruptions interruptions;
    const TraceChange change = setTraceEntry(places.traceConfig, wish);
    std::cout << change.line << std::endl;
    const int number = interruptions.waitFor(time);
    putBack(places, change);
    if (number != 0) {
        interruptions.follow(number);
    }
    return EXIT_DONE;
}

} // namespace

int trace(const Places& places, const TraceWish& wish, const std::optional<Milliseconds>& time) {
    try {
        if (time) {
            return setForAWhile(places, wish, *time);
        }
        set(places, wish);
        return EXIT_DONE;
    } catch (const std::runtime_error& error) {
        return complain(error.what(), EXIT_FAILED);
    }
}

} // namespace ctl
