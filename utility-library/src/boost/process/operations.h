#pragma once

#include "boost/process/context.h"
#include "boost/process/posix_child.h"

#include <string>
#include <vector>

namespace boost::process {

/// Starts a program. The first argument is the program's argument zero; there must be one.
///
/// Throws system_error if no child could be made. A child that cannot become the program writes
/// the reason to its standard error and exits with code 1. Safe from any thread; may allocate and
/// block in the parent, never in the child.
posix_child launch(const std::string& executable, const std::vector<std::string>& arguments,
                   const basic_context& ctx);
posix_child launch(const std::string& executable, const std::vector<std::string>& arguments,
                   const posix_context& ctx);

} // namespace boost::process
