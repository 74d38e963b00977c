#pragma once

#include "lifeline.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace brem {

/// A message loop: any thread posts, the one thread in run() executes the messages one at a time.
class IDispatcher {
public:
    using Message = std::function<void()>;

    IDispatcher() = default;
    virtual ~IDispatcher() { m_lifeline->cut(); }

    IDispatcher(const IDispatcher&) = delete;
    IDispatcher& operator=(const IDispatcher&) = delete;

    /// Executes messages on the calling thread until stop(). What a message throws leaves run().
    virtual void run() = 0;
    /// Any thread. The message runs once, on the thread of run(); an empty one is dropped there.
    virtual void post(Message message) = 0;
    /// As post(), after a delay that counts on the steady clock; zero or less: due at once.
    virtual void postDelayed(std::chrono::milliseconds delay, Message message) = 0;
    virtual void postDelayed(std::chrono::seconds delay, Message message) = 0;
    virtual void postDelayed(std::chrono::minutes delay, Message message) = 0;
    /// Any thread. run() returns after the message that is running; lost if run() has not begun.
    virtual void stop() = 0;
    /// Any thread. Drops all messages without calling them; the one that is running goes on.
    virtual void clear() = 0;
    /// Any thread. Counts the messages, due or not, the running one included.
    virtual std::size_t size() = 0;
    /// Any thread. Posts a stop: what was posted before and is due runs first.
    virtual void shutdown() = 0;

    /// For those who may post after the dispatcher is gone. An implementation cuts it first thing
    /// in its destructor.
    const std::shared_ptr<Lifeline<IDispatcher>>& lifeline() const { return m_lifeline; }

private:
    const std::shared_ptr<Lifeline<IDispatcher>> m_lifeline =
        std::make_shared<Lifeline<IDispatcher>>(this);
};

} // namespace brem
