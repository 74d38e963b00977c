#include "server/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

/// Something harmless; where there is no "/dev/null" yet, what every system has: the root folder.
int openNothing() {
    const int null = open("/dev/null", O_RDWR);
    return null >= 0 ? null : open("/", O_RDONLY | O_DIRECTORY);
}

} // namespace

void openStandardDescriptors() {
    for (int wanted = STDIN_FILENO; wanted <= STDERR_FILENO; ++wanted) {
        if (fcntl(wanted, F_GETFD) >= 0 || errno != EBADF) {
            continue;
        }
        const int opened = openNothing(); // the lowest that is free: those below are open by now
        if (opened > wanted) {
            close(opened);
        }
    }
}
