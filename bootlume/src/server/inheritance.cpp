#include "server/inheritance.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>

namespace {

/// Something harmless; if there is no "/dev/null" yet, what every system has: the root folder.
int openNothing() {
    const int null = open("/dev/null", O_RDWR);
    return null >= 0 ? null : open("/", O_RDONLY | O_DIRECTORY);
}

/// Without this the overlay or the socket could become standard output, and trace lines would be
/// written into it.
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

} // namespace

void correctInheritance() {
    openStandardDescriptors();
    signal(SIGCHLD, SIG_DFL); // if it were ignored, a reboot would have no result
    signal(SIGXFSZ, SIG_IGN); // at a limit for files, lines are lost and nothing else
    sigset_t ending{};
    sigemptyset(&ending);
    for (const int sig : {SIGHUP, SIGINT, SIGTERM}) {
        sigaddset(&ending, sig);
    }
    sigprocmask(SIG_UNBLOCK, &ending, nullptr);
}
