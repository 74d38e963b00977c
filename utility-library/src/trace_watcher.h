#pragma once

namespace Trace {

/// Reads the trace configuration anew whenever its file is modified.
class TraceWatcher {
public:
    TraceWatcher();
    ~TraceWatcher();

    TraceWatcher(const TraceWatcher&) = delete;
    TraceWatcher& operator=(const TraceWatcher&) = delete;

    /// Body of the thread "trace_config". Returns once Log::isAlive::s_alive is false, which it
    /// looks at every 100 ms and when it is woken.
    void run();

    /// Makes run() look at once. Safe from any thread.
    void wake();

private:
    bool awaitModification(int notifyFd) const;

    const int m_wakeFd;
};

} // namespace Trace
