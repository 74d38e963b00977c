#pragma once

#include "boost/process/context.h"
#include "boost/process/detail/stream_info.h"

#include <signal.h>

#include <set>
#include <string>
#include <type_traits>
#include <vector>

namespace boost::process::detail {

/// Everything that the child needs between fork and execve. It is laid out before the fork, and
/// borrowed.
struct child_plan {
    const std::string& executable;
    char* const* argv;
    char* const* envp;
    info_map& inputs; ///< the child moves its ends of the pipes, in its copy of the memory
    info_map& outputs;
    const std::set<int>& descriptors; ///< the keys of both
    long maxdescs;                    ///< all descriptors lie below it
    const posix_context& ctx;
    const std::vector<std::string>& reasons; ///< what the error class appends, for each errno
};

static_assert(std::is_trivially_destructible_v<child_plan>, "the child runs no destructor of it");

/// Body of the forked child: becomes the program, or writes the reason to descriptor 2 and ends
/// with code 1. All signals must be blocked; the program gets the caller's mask.
[[noreturn]] void run_child(const child_plan& plan, const sigset_t& callers_mask) noexcept;

} // namespace boost::process::detail
