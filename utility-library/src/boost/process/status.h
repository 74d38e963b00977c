#pragma once

namespace boost {
namespace process {

/// How a child ended: the raw wait status.
class status {
public:
    explicit status(int flags) : flags_(flags) {}

    /// Whether the child ended by itself, not by a signal.
    bool exited() const;
    /// The exit code (bits 8 to 15 of the status); meaningful only where it exited.
    int exit_status() const;

private:
    int flags_;
};

} // namespace process
} // namespace boost
