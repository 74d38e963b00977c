#pragma once

#include "idispatcher.h"
#include "iprocess.h"
#include "lifeline.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace boost::process {
class posix_child;
} // namespace boost::process

namespace brem {

/// Runs one program as a child on a worker thread and reports its exit code through the dispatcher.
///
/// start(), stop() and the destructor belong to the owner. The result callback runs on the
/// dispatcher's thread, which may not be the owner's. It may start the program again, and may end
/// the runner. The dispatcher may be deleted first: a result that comes after that is
/// dropped. Attached, the child's output is logged line by line; detached, the child has a session
/// of its own and no streams.
class Process : public IProcess {
public:
    /// The first argument is the program's path and its argument zero. Borrows the dispatcher,
    /// which there must be.
    Process(IDispatcher* dispatcher, const std::vector<std::string>& arguments, bool detached);
    /// Waits for a child that still runs, and for a callback that has begun on another thread.
    ~Process() override;

    /// Starts the program; if a run is going on or its result is not yet delivered, logs
    /// "already running" and drops the callback. Every other callback is called once, also if
    /// the program could not be started.
    void start(ResultCallback callback) override;
    /// Asks the running child to end (SIGTERM); neither waits nor joins.
    void stop() override;

private:
    using Body = void (Process::*)();

    void startAttached(const ResultCallback& callback);
    void startDetached(const ResultCallback& callback);
    void startThread(Body body, const ResultCallback& callback);
    void runThread(Body body, const ResultCallback& callback);
    void runAttached();
    void runDetached();
    template <class Context>
    boost::process::posix_child launch(Context& context);
    void waitFor(const boost::process::posix_child& child);
    const std::string& program() const;
    std::string commandLine() const;
    void postResult(const ResultCallback& callback);
    void sendResult(const ResultCallback& callback);
    void joinThread();

    std::atomic<bool> m_running{false}; ///< noted only: whether a run is on, m_thread says
    std::atomic<std::int32_t> m_childPid{-1};
    /// Of the last child that was seen to end. A first launch that fails counts as a failure.
    std::atomic<std::int32_t> m_result{-1};
    std::unique_ptr<std::thread> m_thread;
    const std::shared_ptr<Lifeline<IDispatcher>> m_dispatcher;
    const std::vector<std::string> m_arguments;
    const bool m_detached;
    const std::shared_ptr<Lifeline<Process>> m_lifeline; ///< for the results that are queued
};

} // namespace brem
