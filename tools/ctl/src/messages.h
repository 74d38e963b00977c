/// \file
/// What bootlumectl says when something is not as it should be: one line, with what to do about it.
#pragma once

#include <string>

namespace client {
class SplashSocket;
}

namespace ctl {

enum ExitStatus {
    EXIT_DONE = 0,
    EXIT_FAILED = 1,
    EXIT_USAGE = 2,
    EXIT_NO_SPLASH = 3,
    EXIT_TIMED_OUT = 4,
};

/// Writes a line to standard error; returns the status, for the caller to return.
int complain(const std::string& text, ExitStatus status);

/// Says why the splash at this socket cannot be reached, as it is now.
int cannotReach(const client::SplashSocket& socket);

/// Says `what` a splash that is there does not do, and what keeps it from that, as far as can be
/// seen.
int doesNotAnswer(const client::SplashSocket& socket, const std::string& what);

} // namespace ctl
