/// \file
/// Changes the trace configuration file in place.
#pragma once

#include "trace_entry.h"

#include <string>

namespace ctl {

struct TraceChange {
    std::string line;     ///< the splash's entry as it stands in the file now
    bool created = false; ///< the file was not there before
};

/// Sets the splash's entry: the first one in the file, or a new last line. Every other line stays
/// as it is. The file is never replaced, so that those who watch it see the change, and written at
/// once, so that whoever reads it meanwhile finds the old entries or the new.
/// Throws std::runtime_error with a sentence for people, the file untouched.
TraceChange setTraceEntry(const std::string& path, const TraceWish& wish);

} // namespace ctl
