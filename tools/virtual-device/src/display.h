/// \file
/// The display behind the device: takes over one buffer a refresh.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <pthread.h>

namespace virtual_device {

class BufferQueue;

/// Runs on a thread of its own from start() to stop(). At each refresh with a buffer waiting it
/// takes that buffer over, lets it be published, and releases the one shown before. The last one
/// shown is kept until another takes over.
class Display {
public:
    /// Publishes the buffer; called on the display's thread without any lock.
    using Show = std::function<void(std::uint32_t buffer)>;
    /// Called on the display's thread after a buffer was released.
    using Released = std::function<void()>;

    /// `mutex` guards the queue.
    Display(std::mutex& mutex, BufferQueue& queue, Show show, Released released);

    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    /// False where no thread can be had.
    bool start();
    /// Returns when the thread has ended; the lock of the queue must be free. Nothing happens where
    /// it does not run.
    void stop();
    /// A buffer was queued.
    void wake();

private:
    void run();
    bool waitForBuffer();
    bool waitUntil(std::int64_t timeNs);
    std::int64_t nextRefresh();
    static void* enter(void* self);

    std::mutex& m_mutex;
    BufferQueue& m_queue;
    const Show m_show;
    const Released m_whenReleased;
    pthread_t m_thread{};
    bool m_started = false;
    std::atomic<bool> m_stopping{false};
    std::atomic<std::uint32_t> m_events{0};
    std::int64_t m_origin = 0;
    bool m_first = true;
};

} // namespace virtual_device
