#pragma once

#include "boost/process/detail/file_handle.h"
#include "boost/process/stream_behavior.h"

#include <boost/optional.hpp>

#include <map>
#include <string>

namespace boost::process::detail {

/// What the child does with one descriptor, made from a stream_behavior.
struct stream_info {
    enum kind { close, inherit, redirect, use_file, use_pipe };

    /// Opens the pipe of a captured stream. Throws system_error.
    stream_info(const stream_behavior& behavior, bool output);

    kind kind_ = close;
    int target_ = -1;            ///< of a redirect
    std::string file_;           ///< of use_file
    boost::optional<pipe> pipe_; ///< of use_pipe
};

/// By descriptor number; one map for inputs and one for outputs.
using info_map = std::map<int, stream_info>;

/// The infos of the behaviours, pipes opened. Throws system_error.
info_map make_infos(const std::map<int, stream_behavior>& behaviors, bool output);

} // namespace boost::process::detail
