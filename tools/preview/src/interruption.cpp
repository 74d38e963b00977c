#include "interruption.h"

#include <unistd.h>

#include <csignal>
#include <initializer_list>

namespace preview {
namespace {

volatile std::sig_atomic_t caught = 0;

void remember(int number) {
    caught = number;
}

} // namespace

void catchSignals() {
    struct sigaction action {};
    action.sa_handler = remember; // without SA_RESTART: it wakes whoever waits
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(number, &action, nullptr);
    }
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

int caughtSignal() {
    return caught;
}

void throwIfInterrupted() {
    if (caught != 0) {
        throw Interrupted(caught);
    }
}

void dieOf(int number) {
    std::signal(number, SIG_DFL);
    raise(number);
    _exit(128 + number);
}

} // namespace preview
