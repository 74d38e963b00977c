/// \file
/// Who has a socket file bound. Nothing is sent to find out.
#pragma once

#include "process_info.h"

#include <optional>
#include <string>

namespace client {

/// The process that has the socket file at `path` bound; the oldest where several share it. Nothing
/// where nobody has, or where this user may not look into the process that has it.
std::optional<Process> findHolder(const std::string& path);

} // namespace client
