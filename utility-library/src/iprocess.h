#pragma once

#include <functional>

namespace brem {

/// An external program that its owner can start and end.
class IProcess {
public:
    /// Called on the dispatcher's thread with the exit code, or -1 if the child did not end by
    /// itself. If no child was seen to end, the result is that of the run before; -1 if there was
    /// none.
    using ResultCallback = std::function<void(int)>;

    IProcess() = default;
    virtual ~IProcess() = default;

    IProcess(const IProcess&) = delete;
    IProcess& operator=(const IProcess&) = delete;

    virtual void start(ResultCallback callback) = 0;
    virtual void stop() = 0;
};

} // namespace brem
