#pragma once

#include "idispatcher.h"

#include <atomic>
#include <string>

// The names of environment variables. A parameter is always read through these.
extern const char* REBOOT_COMMAND;
extern const char* VRX_REBOOT_COMMAND;
extern const char* SPLASH_TIMEOUT;
extern const char* SPLASH_TIMEOUT_HARD;

/// The path of the command socket.
extern const char* socket_path;

/// The program's message loop; null before main has created it and after the teardown. Written by
/// the main thread only, before the other threads start and after they have ended.
extern std::atomic<brem::IDispatcher*> gdispatcher;

/// The variable's text, whatever it is; the default if the variable is not set. Main thread only.
std::string getEnvParameter(const char* name, const std::string& defaultValue);
/// The number that the variable's text begins with. The default if the variable is not set, or,
/// with an "ERROR" line, if its text begins with no number. Main thread only.
int getEnvParameter(const char* name, int defaultValue);
