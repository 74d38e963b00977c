#pragma once

#include "display/overlay.h"
#include "server/signal_relay.h"

#include <string>

/// Handler of SIGHUP and SIGINT: ends the splash if the dispatcher exists; if not, the signal has
/// no effect.
///
/// Only async-signal-safe calls run here. The line and the stop follow at once on the relay's
/// thread: the signal may interrupt a thread in a trace line, which holds the lock of all lines.
void shutdown(int sig);

/// What shutdown() leads to, on the relay's thread.
void endBySignal(int sig);

/// Carries signals from shutdown() to endBySignal() while the dispatcher exists.
extern SignalRelay signalRelay;

/// Acts on one message of the command socket: "QUIT" ends the splash; a title and body lines
/// separated by ";" become the renderer's texts; anything else gives a "WARN" line and changes
/// nothing. Any thread. The renderer is borrowed.
class CommandHandler {
public:
    explicit CommandHandler(paint::Overlay& overlay) : m_overlay(overlay) {}

    void operator()(std::string message) const;

private:
    paint::Overlay& m_overlay;
};
