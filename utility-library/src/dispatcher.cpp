#include "dispatcher.h"

#include "tracing.h"
#include "wall_clock.h"

#include <sched.h>

#include <algorithm>
#include <utility>

namespace brem {

namespace {

const char* const SUBSYSTEM = "DISPATCHER";
constexpr std::chrono::milliseconds SHORTEST_WAIT{1};
constexpr std::chrono::milliseconds LONGEST_WAIT{1000};

} // namespace

#define TRACE_DISPATCHER(LEVEL, MESSAGE)                                                           \
    TRACE_MASKED(LEVEL, Trace::TRACE_MASK_DISPATCHER, SUBSYSTEM, MESSAGE)

Dispatcher::Dispatcher() : m_taken(m_queue.end()) {
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "create dispatcher");
}

Dispatcher::~Dispatcher() {
    lifeline()->cut();
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "destroy dispatcher");
}

void Dispatcher::run() {
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "entering dispatcher loop");
    m_running = true; // a stop() that came before is lost, on purpose
    while (m_running) {
        waitForMessage();
        if (m_running) {
            runMessage();
        }
    }
    TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "exiting dispatcher loop");
}

/// Returns when a message is due or nearly so, or when the loop is to stop.
void Dispatcher::waitForMessage() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (firstDue() == m_queue.end() && m_running) {
        const auto wait = untilEarliest();
        if (wait < SHORTEST_WAIT) {
            return; // too short for a sleep
        }
        // The deadline is on the wall clock, on purpose: a clock that is set shifts this one wait.
        const auto now = WallClock::now();
        if (now.time_since_epoch().count() > 0) {
            m_condition.wait_until(lock, now + wait);
        } else { // before 1970 every deadline has passed, and the loop would spin
            m_condition.wait_for(lock, wait);
        }
    }
}

/// Runs a copy of the first message that is due, if there is one. The entry stays queued, and
/// counted, until the copy has run; for good if the copy throws.
void Dispatcher::runMessage() {
    Message message;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_taken = firstDue(); // from the front again: of two that fell due since, the first posted
        if (m_taken == m_queue.end()) {
            return;
        }
        TRACE_DISPATCHER(Trace::LEVEL_VERBOSE, "got message");
        message = m_taken->message;
    }
    if (message) {
        message();
    }
    // Destroyed with the mutex free, as the copy is: what a message holds may post at its end.
    Message queued;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_taken != m_queue.end()) {
        queued.swap(m_taken->message);
        m_queue.erase(m_taken);
    }
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
    Queue dropped; // destroyed with the mutex free: what a message holds may post at its end
    const std::lock_guard<std::mutex> lock(m_mutex);
    dropped.swap(m_queue);
    m_taken = m_queue.end();
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

/// How long to wait for the earliest of the queue: whole milliseconds, and never over a second.
std::chrono::milliseconds Dispatcher::untilEarliest() const {
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

} // namespace brem
