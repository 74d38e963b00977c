/// \file
/// Who has a socket file bound. Nothing is sent to find out.
#pragma once

#include "process_info.h"

#include <optional>
#include <string>

namespace client {

/// The process that has the socket file at `path` bound; the oldest if several share it. Nothing if
/// nobody has, or if this user may not look into the process that has it.
std::optional<Process> findHolder(const std::string& path);

} // namespace client
