#include "quit.h"

#include "bound_socket.h"
#include "closing_splash.h"
#include "splash_socket.h"

#include <optional>
#include <thread>

namespace client {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds LOOK_AGAIN{5};
constexpr milliseconds WAIT_FOR_SPLASH{20};
constexpr milliseconds REPEAT{50};

class Patience {
public:
    explicit Patience(const QuitRequest& request)
        : m_request(request), m_end(Clock::now() + request.limit) {}

    /// Sleeps, and returns what ends the wait, if anything does.
    std::optional<QuitResult> sleep(milliseconds time) const {
        if (m_request.interrupted && m_request.interrupted()) {
            return QuitResult::INTERRUPTED;
        }
        if (m_request.limit.count() > 0 && Clock::now() >= m_end) {
            return QuitResult::TIMED_OUT;
        }
        std::this_thread::sleep_for(time);
        return {};
    }

private:
    const QuitRequest& m_request;
    const Clock::time_point m_end;
};

/// A splash whose queue is full is there as well.
bool canBeReached(bootlume_result result) {
    return result == BOOTLUME_SENT || result == BOOTLUME_BUSY;
}

std::optional<QuitResult> awaitSplash(const SplashSocket& socket, const Patience& patience,
                                      bool wait) {
    for (;;) {
        const bootlume_result answer = socket.probe();
        if (canBeReached(answer)) {
            return {};
        }
        if (answer != BOOTLUME_NO_SPLASH) {
            return QuitResult::FAILED;
        }
        if (!wait) {
            return QuitResult::NO_SPLASH;
        }
        if (const auto end = patience.sleep(WAIT_FOR_SPLASH)) {
            return *end == QuitResult::TIMED_OUT ? QuitResult::NONE_CAME : *end;
        }
    }
}

/// A splash that has taken over the path since is not the one to end.
bool isStillAt(const std::string& path, const std::optional<Process>& splash) {
    if (!splash) {
        return true;
    }
    const std::optional<Process> holder = findHolder(path);
    return holder && holder->pid == splash->pid;
}

/// Waits for the end of a splash that serves no socket; nothing if it serves one after all.
std::optional<QuitResult> awaitEnd(const Process& splash, const SplashSocket& socket,
                                   const Patience& patience) {
    while (isAlive(splash)) {
        if (canBeReached(socket.probe()) && isStillAt(socket.path(), splash)) {
            return {};
        }
        if (const auto end = patience.sleep(WAIT_FOR_SPLASH)) {
            return *end;
        }
    }
    return QuitResult::GONE;
}

/// False if sending is refused for good.
bool sendQuit(const SplashSocket& socket) {
    const bootlume_result result = socket.send("QUIT");
    return canBeReached(result) || result == BOOTLUME_NO_SPLASH;
}

} // namespace

QuitResult quitSplash(const SplashSocket& socket, const QuitRequest& request) {
    const Patience patience(request);
    if (socket.probe() == BOOTLUME_NO_SPLASH) {
        const std::optional<Process> closing = findClosing(socket.path());
        if (const auto end = closing ? awaitEnd(*closing, socket, patience) : std::nullopt) {
            return *end;
        }
    }
    if (const auto end = awaitSplash(socket, patience, request.waitForSplash)) {
        return *end;
    }
    const std::optional<Process> splash = findHolder(socket.path());
    for (Clock::time_point next = Clock::now();;) {
        if (splash ? !isAlive(*splash) : socket.probe() == BOOTLUME_NO_SPLASH) {
            return splash ? QuitResult::GONE : QuitResult::SOCKET_GONE;
        }
        if (Clock::now() >= next) {
            if (isStillAt(socket.path(), splash) && !sendQuit(socket)) {
                return QuitResult::FAILED;
            }
            next = Clock::now() + REPEAT;
        }
        if (const auto end = patience.sleep(LOOK_AGAIN)) {
            return *end;
        }
    }
}

} // namespace client
