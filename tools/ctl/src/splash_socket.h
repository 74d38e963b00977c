/// \file
/// The splash's command socket, from the side of those who talk to it.
#pragma once

#include <chrono>
#include <string>

namespace client {

/// Sends commands to the socket at one path. Bound to one thread.
class SplashSocket {
public:
    enum class Answer {
        ANSWERS,
        NOBODY,    ///< no file, or a file that a splash left behind
        FORBIDDEN, ///< this user may not write to it
        OTHER,     ///< something is there, and it is no command socket
    };
    enum class Sent { YES, BUSY, NOBODY, TOO_LONG, FAILED };

    explicit SplashSocket(std::string path);

    /// Whether somebody has the socket bound. Sends nothing.
    Answer probe() const;

    /// Sends one datagram; waits at most `patience` while the splash's queue is full. On FAILED and
    /// FORBIDDEN, lastError() says why.
    Sent send(const std::string& message, std::chrono::milliseconds patience) const;

    const std::string& path() const { return m_path; }
    const std::string& lastError() const { return m_error; }

private:
    std::string m_path;
    mutable std::string m_error;
};

} // namespace client
