#include "dispatcher.h"

#include "tracing.h"

#include <sched.h>

#include <algorithm>

namespace brem {

namespace {

const char* const SUBSYSTEM = "DISPATCHER";
constexpr std::chrono::milliseconds LONGEST_WAIT{1000};

} // namespace

#define TRACE_DISPATCHER(LEVEL, MESSAGE)                                                           \
    TRACE_MASKED(LEVEL, Trace::TRACE_MASK_DISPATCHER, SUBSYSTEM, MESSAGE)

Dispatcher::Dispatcher() : m_current(m_queue.end()) {
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "create dispatcher");
}

Dispatcher::~Dispatcher() {
    cutLifeline();
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "destroy dispatcher");
}

void Dispatcher::run() {
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "entering dispatcher loop");
    m_running = true; // a stop() that came before is lost, on purpose
    std::unique_lock<std::mutex> lock(m_mutex);
    while (m_running) {
        waitForMessage(lock);
        if (!m_running) {
            break;
        }
        runMessage(take(), lock);
    }
    lock.unlock();
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "exiting dispatcher loop");
}

/// Calls the copy with the mutex free; the entry stays queued, and counted, until the copy has run.
void Dispatcher::runMessage(Message copy, std::unique_lock<std::mutex>& lock) {
    lock.unlock();
    try {
        if (copy) {
            copy();
        }
    } catch (...) {
        lock.lock();
        m_current = m_queue.end(); // the entry stays queued
        lock.unlock();
        throw;
    }
    Queue done;
    lock.lock();
    if (m_current != m_queue.end()) {
        done.splice(done.end(), m_queue, m_current);
        m_current = m_queue.end();
    }
    lock.unlock();
    // Destroyed with the mutex free: what a message holds may post when it is destroyed.
    done.clear();
    copy = nullptr;
    lock.lock();
}

void Dispatcher::post(Message message) {
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "post message");
    append(std::chrono::nanoseconds::zero(), std::move(message));
}

void Dispatcher::postDelayed(std::chrono::milliseconds delay, Message message) {
    postAfter(delay, std::move(message));
}

void Dispatcher::postDelayed(std::chrono::seconds delay, Message message) {
    postAfter(delay, std::move(message));
}

void Dispatcher::postDelayed(std::chrono::minutes delay, Message message) {
    postAfter(delay, std::move(message));
}

void Dispatcher::postAfter(std::chrono::nanoseconds delay, Message&& message) {
    TRACE_DISPATCHER(Trace::LEVEL_DEBUG, "post delayed");
    append(delay, std::move(message));
}

void Dispatcher::append(std::chrono::nanoseconds delay, Message&& message) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_queue.push_back({Clock::now() + delay, std::move(message)});
    }
    m_condition.notify_one();
    sched_yield();
}

void Dispatcher::stop() {
    m_running = false;
    m_condition.notify_one();
    sched_yield();
}

void Dispatcher::shutdown() {
    post([this] { stop(); });
}

void Dispatcher::clear() {
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "clear");
    Queue dropped; // destroyed with the mutex free: a message's destructor may call back
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (auto entry = m_queue.begin(); entry != m_queue.end();) {
        const auto next = std::next(entry);
        if (entry != m_current) { // the running one is the loop's to unlink, and still counts
            dropped.splice(dropped.end(), m_queue, entry);
        }
        entry = next;
    }
}

std::size_t Dispatcher::size() {
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "size");
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_queue.size();
}

Dispatcher::Queue::iterator Dispatcher::firstDue() {
    return std::find_if(m_queue.begin(), m_queue.end(),
                        [](const Entry& entry) { return entry.due <= Clock::now(); });
}

void Dispatcher::waitForMessage(std::unique_lock<std::mutex>& lock) {
    while (firstDue() == m_queue.end() && m_running) {
        auto wait = LONGEST_WAIT;
        const auto earliest =
            std::min_element(m_queue.begin(), m_queue.end(),
                             [](const Entry& a, const Entry& b) { return a.due < b.due; });
        if (earliest != m_queue.end()) {
            const auto untilDue =
                std::chrono::duration_cast<std::chrono::milliseconds>(earliest->due - Clock::now());
            wait = std::min(untilDue, LONGEST_WAIT);
        }
        if (wait.count() < 1) {
            return; // due in less than a millisecond: polled for, not slept for
        }
        // The deadline is on the wall clock, on purpose: a clock that is set shifts this one wait.
        m_condition.wait_until(lock, std::chrono::system_clock::now() + wait);
    }
}

IDispatcher::Message Dispatcher::take() {
    m_current = firstDue();
    if (m_current == m_queue.end()) {
        return {};
    }
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "got message");
    return m_current->message;
}

} // namespace brem
