/// \file
/// A splash that is there and serves no socket.
#pragma once

#include "process_info.h"

#include <optional>
#include <string>

namespace client {

/// The splash that sees the socket file at `path` as its own. If nobody answers there, it has
/// closed its socket and is on its way out, or it could not make one. Nothing if there is no such
/// splash, or if this user may not look into it.
std::optional<Process> findClosing(const std::string& path);

} // namespace client
