#pragma once

namespace brem {

/// Names the calling thread as the kernel and the trace lines show it (at most 15 characters).
/// A failure is written to standard output as "failed to set thread name", and the thread goes on.
void nameThisThread(const char* name);

} // namespace brem
