#include "server/signal_relay.h"

#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iterator>

static_assert(std::atomic<int>::is_always_lock_free && std::atomic<char>::is_always_lock_free,
              "used in a signal handler");

SignalRelay::~SignalRelay() {
    stop();
    sem_destroy(&m_raised);
}

void SignalRelay::start(const Function& function) {
    m_running = true;
    m_thread = std::thread([this, function] { run(function); });
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
    char name[16] = "";
    prctl(PR_GET_NAME, name, 0, 0, 0);
    std::copy(std::begin(name), std::end(name), m_name.begin());
    ++m_pending[static_cast<std::size_t>(sig)];
    sem_post(&m_raised);
    errno = error; // the interrupted code may be about to look at it
}

void SignalRelay::run(const Function& function) {
    while (m_running) {
        sem_wait(&m_raised); // an interrupted wait only finds nothing
        handOn(SIGHUP, function);
        handOn(SIGINT, function);
    }
}

void SignalRelay::handOn(int sig, const Function& function) {
    std::atomic<int>& count = m_pending[static_cast<std::size_t>(sig)];
    // A stop does not wait for the rest of a storm: a slow reader may hold its lines up.
    for (; m_running && count != 0; --count) {
        char name[16];
        std::copy(m_name.begin(), m_name.end(), name);
        prctl(PR_SET_NAME, name, 0, 0, 0);
        function(sig);
    }
}
