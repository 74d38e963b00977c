#pragma once

#include <semaphore.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <functional>
#include <thread>

/// Hands SIGHUP and SIGINT from a handler to a function on a thread of its own, one call for each.
///
/// raise() may be called from a signal handler on any thread; start() and stop() belong to one
/// thread. The relay's thread takes the name of the thread that took the last signal: a trace line
/// shows it.
class SignalRelay {
public:
    using Function = std::function<void(int sig)>;

    SignalRelay() { sem_init(&m_raised, 0, 0); }
    ~SignalRelay();

    SignalRelay(const SignalRelay&) = delete;
    SignalRelay& operator=(const SignalRelay&) = delete;

    void start(const Function& function);
    /// Returns once no call is under way; what was raised and not yet handed on is dropped.
    void stop();

    /// Async-signal-safe.
    void raise(int sig) noexcept;

private:
    void run(const Function& function);
    void handOn(int sig, const Function& function);

    sem_t m_raised;
    std::atomic<bool> m_running{false};
    std::array<std::atomic<int>, NSIG> m_pending{}; ///< by signal: raised, not yet handed on
    std::array<std::atomic<char>, 16> m_name{};     ///< of the thread that took the last signal
    std::thread m_thread;
};
