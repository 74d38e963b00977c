#pragma once

#include <chrono>
#include <cstddef>

/// The way of a trace line to standard output, and how long it may take.
namespace Trace {

/// Writes the text to standard output and flushes it. One caller at a time. Errors are not
/// reported: a line that cannot be written is lost.
void writeToStandardOutput(const char* text, std::size_t length);

/// From the next line on, a line waits at most so long for a reader that takes nothing. What
/// comes then is lost, without waiting again, until the reader takes something; a line that was
/// cut ends there. Without this call a line waits for ever. Call it while nothing is written.
void limitWaitForReader(std::chrono::milliseconds longest);

} // namespace Trace
