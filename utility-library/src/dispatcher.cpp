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
    Queue done; // entries that have run: their messages are gone, their memory is still to be freed
    std::unique_lock<std::mutex> lock(m_queueMutex);
    while (m_running) {
        waitForMessage(lock);
        if (!m_running) {
            break;
        }
        const auto due = firstDue(); // from the front again: of two that fell due since, the first
        if (due != m_queue.end()) {
            runEntry(due, lock, done);
        } else { // polled for: others get at the queue meanwhile
            lock.unlock();
            lock.lock();
        }
    }
    lock.unlock();
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "exiting dispatcher loop");
}

/// Calls a copy of the message with the mutex free; the entry stays queued, and counted, until the
/// copy has run.
void Dispatcher::runEntry(Queue::iterator entry, std::unique_lock<std::mutex>& lock, Queue& done) {
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "got message");
    Message copy = entry->message;
    m_current = entry;
    lock.unlock();
    done.clear();
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
    // Destroyed with the mutex free: what a message holds may post when it is destroyed. Nobody
    // else looks into the entry that runs.
    entry->message = nullptr;
    copy = nullptr;
    lock.lock();
    done.splice(done.end(), m_queue, entry);
    m_current = m_queue.end();
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
    Queue entry; // made with the mutex free
    entry.push_back({{}, std::move(message)});
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        entry.front().due = Clock::now() + delay;
        m_posted.splice(m_posted.end(), entry);
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
    const std::lock_guard<std::mutex> lock(m_queueMutex);
    const std::lock_guard<std::mutex> postedLock(m_mutex);
    dropped.splice(dropped.end(), m_posted);
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
    const std::lock_guard<std::mutex> lock(m_queueMutex);
    const std::lock_guard<std::mutex> postedLock(m_mutex);
    return m_queue.size() + m_posted.size();
}

Dispatcher::Queue::iterator Dispatcher::firstDue() {
    return std::find_if(m_queue.begin(), m_queue.end(),
                        [](const Entry& entry) { return entry.due <= Clock::now(); });
}

/// How long to wait for the earliest of the queue: whole milliseconds, and never over a second.
std::chrono::milliseconds Dispatcher::untilEarliest() {
    const auto earliest =
        std::min_element(m_queue.begin(), m_queue.end(),
                         [](const Entry& a, const Entry& b) { return a.due < b.due; });
    if (earliest == m_queue.end()) {
        return LONGEST_WAIT;
    }
    const auto untilDue =
        std::chrono::duration_cast<std::chrono::milliseconds>(earliest->due - Clock::now());
    return std::min(untilDue, LONGEST_WAIT);
}

/// Returns when a message is due, or when the loop is to stop or to look again at once.
void Dispatcher::waitForMessage(std::unique_lock<std::mutex>& lock) {
    bool yielded = false;
    while (firstDue() == m_queue.end() && m_running) {
        std::unique_lock<std::mutex> postedLock(m_mutex);
        if (!m_posted.empty()) { // all of it was posted after all of the queue
            m_queue.splice(m_queue.end(), m_posted);
            continue;
        }
        if (!yielded) {
            // Who posts one message often posts the next: cheaper than to be woken for it.
            yielded = true;
            postedLock.unlock();
            lock.unlock();
            sched_yield();
            lock.lock();
            continue;
        }
        const auto wait = untilEarliest();
        if (wait.count() < 1) {
            return; // due in less than a millisecond: polled for, not slept for
        }
        lock.unlock();
        // The deadline is on the wall clock, on purpose: a clock that is set shifts this one wait.
        m_condition.wait_until(postedLock, std::chrono::system_clock::now() + wait);
        postedLock.unlock();
        lock.lock();
    }
}

} // namespace brem
