/// \file
/// Ending a splash, and knowing that it has ended.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace client {

class SplashSocket;

struct QuitRequest {
    std::chrono::milliseconds limit{10000}; ///< for all of it; 0: no limit
    bool waitForSplash = false;             ///< go on while no splash answers
    std::function<bool()> interrupted;      ///< asked often; true gives up. May be empty
};

enum class QuitResult {
    GONE,        ///< its process has ended
    SOCKET_GONE, ///< its socket answers no more; its process could not be seen
    NO_SPLASH,
    NONE_CAME, ///< one was waited for
    TIMED_OUT,
    INTERRUPTED,
    FAILED, ///< SplashSocket::probe() says why
};

/// Sends "QUIT" until the splash that answers now has gone: one that has only just been started may
/// lose the first. One that has closed its socket already is only waited for. Blocks.
QuitResult quitSplash(const SplashSocket& socket, const QuitRequest& request);

} // namespace client
