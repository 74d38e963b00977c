#pragma once

#include "idispatcher.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>

namespace brem {

/// The message loop of the program: a queue in posting order, scanned for what is due.
///
/// Safe from any thread, but only one thread may be in run(). No mutex is held while a message
/// runs, so a message may post, clear or ask for the size. Traces every operation but stop() under
/// TRACE_MASK_DISPATCHER.
class Dispatcher : public IDispatcher {
public:
    Dispatcher();
    ~Dispatcher() override;

    void run() override;
    void post(Message message) override;
    void postDelayed(std::chrono::milliseconds delay, Message message) override;
    void postDelayed(std::chrono::seconds delay, Message message) override;
    void postDelayed(std::chrono::minutes delay, Message message) override;
    void stop() override;
    void clear() override;
    std::size_t size() override;
    void shutdown() override;

private:
    using Clock = std::chrono::steady_clock;

    struct Entry {
        Clock::time_point due;
        Message message;
    };
    using Queue = std::list<Entry>;

    void postAfter(std::chrono::nanoseconds delay, Message&& message);
    void append(std::chrono::nanoseconds delay, Message&& message);
    void waitForMessage();
    void runMessage();
    Queue::iterator firstDue();
    std::chrono::milliseconds untilEarliest() const;

    std::condition_variable m_condition;
    std::mutex m_mutex; ///< guards the queue
    Queue m_queue;      ///< in posting order, not sorted by due time
    std::atomic<bool> m_running{false};
    /// While a message runs: its entry, or the queue's end if the queue was cleared meanwhile.
    Queue::iterator m_taken;
};

} // namespace brem
