#pragma once

#include "idispatcher.h"

#include <atomic>
#include <string>

// Names of environment variables; a parameter is always read through these.
extern const char* REBOOT_COMMAND;
extern const char* VRX_REBOOT_COMMAND;
extern const char* SPLASH_TIMEOUT;
extern const char* SPLASH_TIMEOUT_HARD;

/// Where commands are taken.
extern const char* socket_path;

/// The program's message loop; null before main has created it and after the teardown. Written by
/// the main thread only, before the other threads start and after they have ended.
extern std::atomic<brem::IDispatcher*> gdispatcher;

/// The variable's text, whatever it is; the default where it is not set. Main thread only.
std::string getEnvParameter(const char* name, const std::string& defaultValue);
/// The number that the variable's text begins with; the default where it is not set, or with an
/// "ERROR" line where it is none. Main thread only.
int getEnvParameter(const char* name, int defaultValue);
