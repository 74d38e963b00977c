#pragma once

#include <sys/wait.h>

namespace boost::process {

/// How a child ended: the raw wait status.
class status {
public:
    explicit status(int flags) : flags_(flags) {}

    /// Whether the child ended by itself, not by a signal.
    bool exited() const { return WIFEXITED(flags_); }
    /// The exit code (bits 8 to 15 of the status); meaningful only if it exited.
    int exit_status() const { return WEXITSTATUS(flags_); }

private:
    int flags_;
};

} // namespace boost::process
