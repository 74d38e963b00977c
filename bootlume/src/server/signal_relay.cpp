#include "server/signal_relay.h"

#include <sys/prctl.h>

#include <cerrno>
#include <cstring>
#include <utility>

static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "used in a signal handler");

SignalRelay::SignalRelay() {
    sem_init(&m_raised, 0, 0);
}

SignalRelay::~SignalRelay() {
    stop();
    sem_destroy(&m_raised);
}

void SignalRelay::start(Function function) {
    m_running = true;
    m_thread = std::thread([this, kept = std::move(function)] { run(kept); });
}

void SignalRelay::stop() {
    m_running = false;
    sem_post(&m_raised);
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void SignalRelay::raise(int sig) noexcept {
    const int error = errno;
    std::uint32_t name[NAME_WORDS] = {};
    prctl(PR_GET_NAME, name, 0, 0, 0);
    for (std::size_t i = 0; i < NAME_WORDS; ++i) {
        m_name[i].store(name[i], std::memory_order_relaxed);
    }
    m_pending[static_cast<std::size_t>(sig)].fetch_add(1);
    sem_post(&m_raised);
    errno = error; // the interrupted code may be about to look at it
}

void SignalRelay::run(const Function& function) {
    for (;;) {
        while (sem_wait(&m_raised) == -1 && errno == EINTR) {
        }
        if (!m_running) {
            return;
        }
        for (int sig = 1; sig < NSIG; ++sig) {
            // A stop does not wait for the rest of a storm, whose lines a slow reader may hold up.
            for (auto& count = m_pending[static_cast<std::size_t>(sig)]; m_running && count != 0;
                 --count) {
                takeName();
                function(sig);
            }
        }
    }
}

void SignalRelay::takeName() const {
    std::uint32_t name[NAME_WORDS];
    for (std::size_t i = 0; i < NAME_WORDS; ++i) {
        name[i] = m_name[i].load(std::memory_order_relaxed);
    }
    prctl(PR_SET_NAME, name, 0, 0, 0);
}
