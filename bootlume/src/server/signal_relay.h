#pragma once

#include <semaphore.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>

/// Hands signals from a handler to a function on a thread of its own, one call for each.
///
/// raise() may be called from a signal handler on any thread; start() and stop() belong to one
/// thread. The thread bears the name of the thread that took the signal, so that a trace line shows
/// that.
class SignalRelay {
public:
    using Function = std::function<void(int sig)>;

    SignalRelay();
    ~SignalRelay();

    SignalRelay(const SignalRelay&) = delete;
    SignalRelay& operator=(const SignalRelay&) = delete;

    void start(Function function);
    /// Returns once no call is under way; what was raised and not yet handed on is dropped.
    void stop();

    /// Async-signal-safe.
    void raise(int sig) noexcept;

private:
    static constexpr std::size_t NAME_WORDS = 4; // 16 bytes, the kernel's limit

    void run(const Function& function);
    void takeName() const;

    sem_t m_raised;
    std::atomic<bool> m_running{false};
    std::array<std::atomic<std::uint32_t>, NSIG> m_pending{};
    std::array<std::atomic<std::uint32_t>, NAME_WORDS> m_name{};
    std::thread m_thread;
};
