#pragma once

#include "boost/process/stream_behavior.h"

#include <sys/types.h>

#include <map>
#include <string>

namespace boost::process {

/// Variables by name.
using environment = std::map<std::string, std::string>;

/// The calling process's environment, each entry split at its first equals sign.
environment current_environment();

/// The current directory. Throws system_error.
std::string current_work_directory();

/// How a child with the three standard streams is started.
struct basic_context {
    /// The streams closed, in the current directory, without variables. Throws system_error.
    basic_context() : work_directory(current_work_directory()) {}

    stream_behavior stdin_behavior = stream_behavior::close;
    stream_behavior stdout_behavior = stream_behavior::close;
    stream_behavior stderr_behavior = stream_behavior::close;
    std::string work_directory;
    process::environment environment;
};

/// How a child with any descriptors, and with ids and a session of its own, is started.
struct posix_context {
    /// No descriptor at all, the caller's ids, in the current directory. Throws system_error.
    posix_context() : posix_context(current_work_directory()) {}
    /// The same in a directory that is named.
    explicit posix_context(const std::string& directory);

    std::map<int, stream_behavior> input_behavior;
    std::map<int, stream_behavior> output_behavior;
    std::string work_directory;
    process::environment environment;
    uid_t uid;
    uid_t euid;
    gid_t gid;
    gid_t egid;
    std::string chroot; ///< empty: none
    bool new_session = false;
};

} // namespace boost::process
