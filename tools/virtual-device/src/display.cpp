#include "display.h"

#include "buffer_queue.h"
#include "real.h"
#include "settings.h"

#include <cerrno>
#include <csignal>
#include <limits>
#include <sys/prctl.h>
#include <utility>

namespace virtual_device {

Display::Display(std::mutex& mutex, BufferQueue& queue, Show show, Released released)
    : m_mutex(mutex),
      m_queue(queue),
      m_show(std::move(show)),
      m_whenReleased(std::move(released)) {}

bool Display::start() {
    m_stopping = false;
    m_first = true;
    // The program's signals are for the program's threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    m_started = pthread_create(&m_thread, nullptr, &Display::enter, this) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return m_started;
}

void Display::stop() {
    if (!m_started) {
        return;
    }
    m_stopping = true;
    wake();
    pthread_join(m_thread, nullptr);
    m_started = false;
}

void Display::wake() {
    ++m_events;
    wakeAll(&m_events, false);
}

void* Display::enter(void* self) {
    prctl(PR_SET_NAME, "virtual-display");
    static_cast<Display*>(self)->run();
    return nullptr;
}

void Display::run() {
    constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();
    std::uint32_t shown = none;
    m_origin = monotonicNs();
    while (waitForBuffer()) {
        const std::int64_t refresh = nextRefresh();
        if (!waitUntil(refresh)) {
            return;
        }
        std::uint32_t taken = none;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stopping) {
                return;
            }
            taken = m_queue.takeOver();
        }
        m_show(taken);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_stopping) {
                return;
            }
            if (shown != none) {
                m_queue.release(shown);
            }
        }
        shown = taken;
        m_whenReleased();
    }
}

/// False where the display is to stop.
bool Display::waitForBuffer() {
    while (!m_stopping) {
        const std::uint32_t seen = m_events;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (m_queue.hasWaiting()) {
                return !m_stopping;
            }
        }
        waitWhile(&m_events, seen, -1);
    }
    return false;
}

bool Display::waitUntil(std::int64_t timeNs) {
    while (!m_stopping && monotonicNs() < timeNs) {
        const std::uint32_t seen = m_events;
        if (!m_stopping) {
            waitWhile(&m_events, seen, timeNs);
        }
    }
    return !m_stopping;
}

/// The first refresh from now on; the first buffer of a stream does not wait for one.
std::int64_t Display::nextRefresh() {
    const std::int64_t period = settings().refreshNs;
    if (std::exchange(m_first, false) || period == 0) {
        return 0;
    }
    const std::int64_t past = (monotonicNs() - m_origin) / period;
    return m_origin + (past + 1) * period;
}

} // namespace virtual_device
