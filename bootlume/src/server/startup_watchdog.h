#pragma once

#include "idispatcher.h"
#include "iprocess.h"

/// The messages of the start-up watchdog: a splash that nobody ends in time reboots the device.
///
/// Both run on the dispatcher's thread and borrow the processes, which must outlive the
/// dispatcher's loop. Neither withdraws the other; only the end of the loop keeps them from
/// running.

/// At the soft limit: reboots through the device stack, and plainly if that fails.
brem::IDispatcher::Message softTimeout(brem::IProcess& vrxRebootProcess,
                                       brem::IProcess& rebootProcess);
/// At the hard limit: reboots plainly.
brem::IDispatcher::Message hardTimeout(brem::IProcess& rebootProcess);
