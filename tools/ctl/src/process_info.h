/// \file
/// What /proc tells of one process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace client {

/// A process, told apart from a later one with the same number by its start.
struct Process {
    pid_t pid;
    std::uint64_t startTicks; ///< clock ticks since the boot
    bool stopped;             ///< by a signal, or by a debugger
};

/// Nothing if there is no such process, or only its remains.
std::optional<Process> findProcess(pid_t pid);

/// False once it has ended, even if its parent has not asked for its status yet.
bool isAlive(const Process& process);

/// Seconds since it was started; a change of the wall clock does not show in it.
double ageInSeconds(const Process& process);

} // namespace client
