#pragma once

#include "server/signal_relay.h"

#include <functional>
#include <string>

/// Handler of SIGHUP and SIGINT: ends the splash where the dispatcher exists, else swallows the
/// signal.
///
/// Only async-signal-safe calls run here. The line and the stop follow at once on the relay's
/// thread: a signal in the middle of a trace line must not wait for a lock that its own thread
/// holds.
void shutdown(int sig);

/// What shutdown() leads to, on the relay's thread.
void endBySignal(int sig);

/// Carries signals from shutdown() to endBySignal() while the dispatcher exists.
extern SignalRelay signalRelay;

/// Takes the two texts of a text command.
using SetText = std::function<void(const std::string& title, const std::string& lines)>;

/// Acts on one message of the command socket: "QUIT" ends the splash; a title and body lines
/// separated by ";" go to setText; anything else gives a "WARN" line and changes nothing. Any
/// thread.
void handleCommand(const std::string& message, const SetText& setText);
