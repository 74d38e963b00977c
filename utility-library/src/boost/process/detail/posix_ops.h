#pragma once

#include "boost/process/context.h"
#include "boost/process/detail/stream_info.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace boost::process::detail {

/// Forks a child that sets itself up as the context and the infos say and becomes the program.
/// Returns the child's process id. Throws system_error if the child cannot be made.
pid_t posix_start(const std::string& executable, const std::vector<std::string>& args,
                  const posix_context& ctx, info_map& inputs, info_map& outputs);

} // namespace boost::process::detail
