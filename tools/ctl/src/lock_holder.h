/// \file
/// Who keeps a file locked.
#pragma once

#include <sys/stat.h>

#include <string>

namespace ctl {

/// The processes that hold a lock of flock() on this file, for people: "process 12 (name)". Empty
/// if the kernel names none; several file systems give numbers of their own.
std::string lockHolders(const struct stat& file);

} // namespace ctl
