#include "thread_name.h"
#include "tracing.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Trace {

namespace {

const char* const SUBSYSTEM = "TRACING";
constexpr int POLL_PERIOD_MS = 100;

/// Ends the watcher's poll at once when the facility ends. Lives until exit.
int s_wakeFd = -1;

/// Reads what is pending, and tells whether the file was modified.
bool readModification(int notifyFd) {
    alignas(inotify_event) char events[4096];
    const ssize_t length = read(notifyFd, events, sizeof events);
    if (length < static_cast<ssize_t>(sizeof(inotify_event))) {
        return false;
    }
    const auto end = static_cast<std::size_t>(length);
    for (std::size_t offset = 0; offset + sizeof(inotify_event) <= end;) {
        inotify_event event{};
        std::memcpy(&event, events + offset, sizeof event);
        if (event.wd != -1 && (event.mask & IN_MODIFY) != 0) {
            return true;
        }
        offset += sizeof event + event.len;
    }
    return false;
}

} // namespace

void Log::configThread() {
    brem::nameThisThread("trace_config");
    TRACE_MASKED(LEVEL_VERBOSE, TRACE_MASK_TRACING, SUBSYSTEM, "start trace config thread");
    s_disableColors = isatty(fileno(stdout)) == 0;

    const int notifyFd = inotify_init();
    const int watch = inotify_add_watch(notifyFd, s_configFilePath.c_str(), IN_MODIFY);
    while (isAlive::s_alive) {
        pollfd waits[] = {{notifyFd, POLLIN, 0}, {s_wakeFd, POLLIN, 0}};
        const int ready = poll(waits, 2, POLL_PERIOD_MS);
        if (ready < 0) {
            const ValueFormat reason(0, "poll failed: %s", strerror(errno));
            TRACE(LEVEL_ERROR, reason);
            continue;
        }
        if ((waits[0].revents & POLLIN) != 0 && readModification(notifyFd)) {
            readConfig();
        }
    }
    inotify_rm_watch(notifyFd, watch);
    close(notifyFd);
    closelog();
}

void Log::startWatcher() {
    s_wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    s_traceConfigThread = new std::thread(configThread);
}

Initializer::~Initializer() {
    if (Log::s_traceConfigThread != nullptr) {
        Log::isAlive::s_alive = false;
        eventfd_write(s_wakeFd, 1);
        Log::s_traceConfigThread->join();
        delete Log::s_traceConfigThread;
        Log::s_traceConfigThread = nullptr;
        close(s_wakeFd);
    }
    std::free(Log::s_name);
    Log::s_name = nullptr;
}

} // namespace Trace
