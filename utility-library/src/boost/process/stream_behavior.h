#pragma once

namespace boost::process {

/// What the caller wants for one stream of the child.
class stream_behavior {
public:
    enum type {
        capture = 0,            ///< a pipe to the parent
        close = 1,              ///< no such descriptor in the child
        inherit = 2,            ///< the parent's own
        redirect_to_stdout = 3, ///< the same as the child's descriptor 1
        silence = 4,            ///< /dev/null for an output, /dev/zero for an input
        posix_redirect = 5      ///< the same as a descriptor that is named
    };

    /// Every behaviour but posix_redirect, which needs its target.
    stream_behavior(type kind) : kind_(kind) {} // NOLINT: a behaviour is its type
    static stream_behavior redirect_to(int descriptor) {
        stream_behavior behavior(posix_redirect);
        behavior.target_ = descriptor;
        return behavior;
    }

    type kind() const { return kind_; }
    /// The descriptor to redirect to; -1 if there is none.
    int target() const { return target_; }

private:
    type kind_;
    int target_ = -1;
};

} // namespace boost::process
