#pragma once

#include <map>
#include <string>

namespace boost {
namespace process {

/// Variables by name.
using environment = std::map<std::string, std::string>;

/// The calling process's environment, each entry split at its first equals sign.
environment current_environment();

} // namespace process
} // namespace boost
