#include "thread_name.h"

#include <sys/prctl.h>

#include <cstdio>

namespace brem {

void nameThisThread(const char* name) {
    if (prctl(PR_SET_NAME, name, 0, 0, 0) != 0) {
        // Straight to standard output, not through the trace: the trace would name the thread.
        std::fputs("failed to set thread name\n", stdout);
        std::fflush(stdout);
    }
}

} // namespace brem
