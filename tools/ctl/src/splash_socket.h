/// \file
/// The splash's command socket, from the side of those who talk to it.
#pragma once

#include <bootlume-client.h>

#include <chrono>
#include <string>

namespace client {

/// Sends commands to the socket at one path, however long that is. Bound to one thread.
class SplashSocket {
public:
    explicit SplashSocket(std::string path);

    /// BOOTLUME_SENT if somebody has the socket bound, BOOTLUME_BUSY if its queue is full besides.
    /// Sends nothing.
    bootlume_result probe() const;

    /// Sends one datagram; waits at most `patience` while the splash's queue is full.
    bootlume_result send(const std::string& message,
                         std::chrono::milliseconds patience = std::chrono::milliseconds(0)) const;

    const std::string& path() const { return m_path; }

    /// The system's own words for the last result BOOTLUME_FAILED.
    const std::string& lastError() const { return m_error; }

private:
    std::string m_path;
    mutable std::string m_error;
};

} // namespace client
