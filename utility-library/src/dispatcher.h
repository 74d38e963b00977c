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
/// Safe from any thread but for run(), which exactly one thread may be in. No mutex is held
/// while a message runs, so a message may post, clear or ask for the size. Traces every operation
/// under TRACE_MASK_DISPATCHER.
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

    void append(std::chrono::nanoseconds delay, Message&& message);
    void postAfter(std::chrono::nanoseconds delay, Message&& message);
    Queue::iterator firstDue();
    std::chrono::milliseconds untilEarliest();
    void waitForMessage(std::unique_lock<std::mutex>& lock);
    void runEntry(Queue::iterator entry, std::unique_lock<std::mutex>& lock, Queue& done);

    std::condition_variable m_condition;
    std::mutex m_mutex; ///< guards what was posted since the loop last ran out of messages
    Queue m_posted;     ///< the queue's end; moved all at once, so as not to hold posters up
    std::atomic<bool> m_running{false};
    std::mutex m_queueMutex;   ///< guards the rest of the queue; taken before the other
    Queue m_queue;             ///< in posting order, not sorted by due time
    Queue::iterator m_current; ///< the entry whose message runs; the end where none does
};

} // namespace brem
