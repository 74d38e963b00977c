#include "commands.h"

#include "quit.h"
#include "splash_socket.h"
#include "text_command.h"

#include <cmath>

namespace ctl {
namespace {

using client::SplashSocket;

constexpr std::chrono::milliseconds TEXT_PATIENCE{5000};

} // namespace

int quit(const Places& places, const QuitOptions& options) {
    const SplashSocket socket(places.socket);
    client::QuitRequest request;
    request.limit =
        std::chrono::milliseconds(static_cast<long long>(std::ceil(options.timeoutSeconds * 1000)));
    request.waitForSplash = options.wait;
    switch (client::quitSplash(socket, request)) {
    case client::QuitResult::GONE:
        return EXIT_DONE;
    case client::QuitResult::SOCKET_GONE:
        return complain("the splash's process belongs to another user and cannot be seen; its "
                        "socket answers no more",
                        EXIT_DONE);
    case client::QuitResult::NO_SPLASH:
        return options.ifRunning ? EXIT_DONE : cannotReach(socket);
    case client::QuitResult::NONE_CAME:
        return complain("no splash came up in time at " + socket.path(), EXIT_NO_SPLASH);
    case client::QuitResult::TIMED_OUT:
        return doesNotAnswer(socket, "the splash has not gone in time");
    default:
        return cannotReach(socket);
    }
}

int text(const Places& places, const std::string& title, const std::vector<std::string>& lines) {
    const std::string why = client::refusal(title, lines);
    if (!why.empty()) {
        return complain("not sent: " + why, EXIT_USAGE);
    }
    const SplashSocket socket(places.socket);
    const std::string command = client::textCommand(title, client::joined(lines));
    switch (socket.send(command, TEXT_PATIENCE)) {
    case BOOTLUME_SENT:
        return EXIT_DONE;
    case BOOTLUME_TOO_LONG:
        return complain("not sent: the text has " + std::to_string(command.size()) +
                            " bytes, more than this system sends in one message",
                        EXIT_USAGE);
    case BOOTLUME_BUSY:
        return doesNotAnswer(socket, "not sent: the splash does not read its socket");
    default:
        return cannotReach(socket);
    }
}

} // namespace ctl
