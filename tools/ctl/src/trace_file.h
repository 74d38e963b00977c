/// \file
/// Changes the trace configuration file in place.
#pragma once

#include "trace_entry.h"

#include <string>

namespace ctl {

/// What stands for no entry: the splash keeps what it read last when its entry goes.
constexpr const char* NO_ENTRY = "bootlume 4 0 0";

struct TraceChange {
    std::string line;     ///< the splash's entry as it stands in the file now
    std::string before;   ///< what stood there; empty if there was none
    bool created = false; ///< the file was not there before
};

/// Sets the splash's entry: the first one in the file, or a new last line. Every other line stays
/// as it is. The file is never replaced, so that those who watch it see the change, and written at
/// once, so that whoever reads it meanwhile finds the old entries or the new.
/// A link is not followed, and a lock that another program holds is waited for for 5 s.
/// Throws std::runtime_error with a sentence for people, the file untouched.
TraceChange setTraceEntry(const std::string& path, const TraceWish& wish);

/// Undoes a change; false if the entry has been changed again since, and so is left as it is.
/// Throws like setTraceEntry().
bool putTraceEntryBack(const std::string& path, const TraceChange& change);

} // namespace ctl
