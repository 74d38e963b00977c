#pragma once

#include <signal.h>
#include <sys/types.h>

#include <cstddef>
#include <type_traits>

namespace boost {
namespace process {
namespace detail {

/// What the child does with one descriptor; all in plain memory, laid out before the fork.
struct descriptor_step {
    enum kind { close, inherit, redirect, use_file, use_pipe };

    int descriptor;
    kind action;
    int source;             ///< of redirect: the target; of use_pipe: the child's end
    int other_end;          ///< of use_pipe: the parent's end
    const char* path;       ///< of use_file
    int open_flags;         ///< of use_file
    const char* open_error; ///< of use_file: the text, with the path
};

/// Everything that the child needs between fork and execve. Borrows all that it points to.
struct child_plan {
    const char* executable;
    char* const* argv;
    char* const* envp;
    const descriptor_step* steps; ///< inputs, then outputs, each by number
    std::size_t step_count;
    const int* kept; ///< descriptors that stay open, ascending, each once
    std::size_t kept_count;
    int maxdescs; ///< descriptors lie below it
    const char* chroot;
    const char* work_directory;
    uid_t uid;
    uid_t euid;
    gid_t gid;
    gid_t egid;
    bool new_session;
    sigset_t caller_mask;
    const char* const* reasons; ///< what the error class appends to a text, for each errno
    int reason_count;
};

static_assert(std::is_trivially_destructible<child_plan>::value &&
                  std::is_trivially_destructible<descriptor_step>::value,
              "the child runs no destructor");

/// Body of the forked child: becomes the program, or writes the reason to descriptor 2 and ends
/// with code 1. All signals must be blocked.
[[noreturn]] void run_child(const child_plan& plan) noexcept;

} // namespace detail
} // namespace process
} // namespace boost
