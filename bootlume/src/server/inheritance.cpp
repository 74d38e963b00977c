#include "server/inheritance.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>

namespace {

/// Opens the null device, or the root folder if there is no "/dev/null" yet.
int openNothing() {
    const int null = open("/dev/null", O_RDWR);
    return null >= 0 ? null : open("/", O_RDONLY | O_DIRECTORY);
}

/// Opens those that are closed. Otherwise the overlay or the socket could become standard output,
/// and trace lines would be written into it.
void openStandardDescriptors() {
    for (int wanted = STDIN_FILENO; wanted <= STDERR_FILENO; ++wanted) {
        if (fcntl(wanted, F_GETFD) >= 0 || errno != EBADF) {
            continue;
        }
        const int opened = openNothing(); // the lowest free number: those below are open by now
        if (opened > wanted) {
            close(opened);
        }
    }
}

} // namespace

void correctInheritance() {
    openStandardDescriptors();
    signal(SIGCHLD, SIG_DFL); // if this is ignored, a reboot has no result
    signal(SIGTERM, SIG_DFL); // must end the splash
    signal(SIGXFSZ, SIG_IGN); // at a limit for the size of files, only lines are lost
    sigset_t ending{};
    sigemptyset(&ending);
    for (const int sig : {SIGHUP, SIGINT, SIGTERM}) {
        sigaddset(&ending, sig);
    }
    sigprocmask(SIG_UNBLOCK, &ending, nullptr);
}
