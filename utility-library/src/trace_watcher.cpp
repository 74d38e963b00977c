#include "trace_watcher.h"

#include "thread_name.h"
#include "tracing.h"

#include <limits.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

namespace Trace {

namespace {

constexpr int POLL_PERIOD_MS = 100;
constexpr std::chrono::milliseconds PAUSE_AFTER_FAILURE(1);

/// Reads the event that is pending, and tells whether the file was modified.
bool readModification(int notifyFd) {
    // An event has a name behind it if a folder lies in the file's place.
    alignas(inotify_event) char bytes[sizeof(inotify_event) + NAME_MAX + 1];
    if (read(notifyFd, bytes, sizeof bytes) < static_cast<ssize_t>(sizeof(inotify_event))) {
        return false;
    }
    inotify_event event{};
    std::memcpy(&event, bytes, sizeof event);
    return event.wd != -1 && (event.mask & IN_MODIFY) != 0;
}

} // namespace

TraceWatcher::TraceWatcher() : m_wakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

TraceWatcher::~TraceWatcher() {
    close(m_wakeFd);
}

void TraceWatcher::run() {
    brem::nameThisThread("trace_config");
    TRACE_TRACING("start trace config thread");
    Log::s_disableColors = isatty(fileno(stdout)) == 0;

    const int notifyFd = inotify_init();
    const int watch = inotify_add_watch(notifyFd, Log::s_configFilePath.c_str(), IN_MODIFY);
    while (Log::isAlive::s_alive) {
        if (awaitModification(notifyFd)) {
            Log::readConfig();
        }
    }
    inotify_rm_watch(notifyFd, watch);
    close(notifyFd);
    closelog();
}

bool TraceWatcher::awaitModification(int notifyFd) const {
    pollfd waits[] = {{notifyFd, POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
    if (poll(waits, 2, POLL_PERIOD_MS) < 0) {
        const ValueFormat reason(0, "poll failed: %s", strerror(errno));
        TRACE(LEVEL_ERROR, reason);
        // A lasting failure must not take the processor.
        std::this_thread::sleep_for(PAUSE_AFTER_FAILURE);
        return false;
    }
    return (waits[0].revents & POLLIN) != 0 && readModification(notifyFd);
}

void TraceWatcher::wake() {
    eventfd_write(m_wakeFd, 1);
}

} // namespace Trace
