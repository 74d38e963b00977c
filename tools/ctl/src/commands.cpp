#include "commands.h"

#include "bound_socket.h"
#include "quit.h"
#include "splash_socket.h"
#include "text_command.h"
#include "trace_file.h"

#include <cmath>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <stdexcept>

namespace ctl {
namespace {

using client::SplashSocket;

constexpr std::chrono::milliseconds TEXT_PATIENCE{5000};

int complain(const std::string& text, ExitStatus status) {
    std::cerr << "bootlumectl: " << text << '\n';
    return status;
}

int noSplash(const SplashSocket& socket) {
    return complain("no splash answers at " + socket.path(), EXIT_NO_SPLASH);
}

int cannotReach(const SplashSocket& socket) {
    return complain(socket.path() + ": " + socket.lastError(), EXIT_FAILED);
}

std::string startOf(double ageSeconds) {
    const std::time_t start = std::time(nullptr) - static_cast<std::time_t>(ageSeconds);
    std::tm local{};
    localtime_r(&start, &local);
    char text[32] = "";
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

} // namespace

int quit(const Places& places, double timeoutSeconds, bool wait) {
    const SplashSocket socket(places.socket);
    client::QuitRequest request;
    request.limit =
        std::chrono::milliseconds(static_cast<long long>(std::ceil(timeoutSeconds * 1000)));
    request.waitForSplash = wait;
    switch (client::quitSplash(socket, request)) {
    case client::QuitResult::GONE:
        return EXIT_DONE;
    case client::QuitResult::SOCKET_GONE:
        std::cerr << "bootlumectl: the splash's process belongs to another user and cannot be "
                     "seen; its socket answers no more\n";
        return EXIT_DONE;
    case client::QuitResult::NO_SPLASH:
        return noSplash(socket);
    case client::QuitResult::FAILED:
        return cannotReach(socket);
    case client::QuitResult::NONE_CAME:
        return complain("no splash came up in time", EXIT_NO_SPLASH);
    default:
        return complain("the splash has not gone in time", EXIT_TIMED_OUT);
    }
}

int text(const Places& places, const std::string& title, const std::vector<std::string>& lines) {
    const std::string why = client::refusal(title, lines);
    if (!why.empty())
        return complain("not sent: " + why, EXIT_USAGE);
    const SplashSocket socket(places.socket);
    const std::string command = client::textCommand(title, client::joined(lines));
    switch (socket.send(command, TEXT_PATIENCE)) {
    case SplashSocket::Sent::YES:
        return EXIT_DONE;
    case SplashSocket::Sent::NOBODY:
        return noSplash(socket);
    case SplashSocket::Sent::TOO_LONG:
        return complain("not sent: the text has " + std::to_string(command.size()) +
                            " bytes, more than this system sends in one message",
                        EXIT_USAGE);
    case SplashSocket::Sent::BUSY:
        return complain("the splash does not read its socket", EXIT_TIMED_OUT);
    default:
        return cannotReach(socket);
    }
}

int status(const Places& places) {
    const SplashSocket socket(places.socket);
    const SplashSocket::Answer answer = socket.probe();
    if (answer == SplashSocket::Answer::NOBODY) {
        std::cout << "no splash answers at " << places.socket << '\n';
        return EXIT_NO_SPLASH;
    }
    const std::optional<client::Process> process = client::findHolder(places.socket);
    if (answer != SplashSocket::Answer::ANSWERS && !process)
        return cannotReach(socket);
    std::cout << "a splash answers at " << places.socket << ": ";
    if (process) {
        const double age = client::ageInSeconds(*process);
        std::cout << "process " << process->pid << ", since " << startOf(age) << " (" << std::fixed
                  << std::setprecision(1) << age << " s)\n";
    } else {
        std::cout << "its process belongs to another user and cannot be seen\n";
    }
    return EXIT_DONE;
}

int trace(const Places& places, const TraceWish& wish) {
    try {
        const TraceChange change = setTraceEntry(places.traceConfig, wish);
        std::cout << change.line << '\n';
        if (change.created)
            std::cerr << "bootlumectl: " << places.traceConfig
                      << " is new; a splash that runs already watches it from its next start on\n";
        return EXIT_DONE;
    } catch (const std::runtime_error& error) {
        return complain(error.what(), EXIT_FAILED);
    }
}

} // namespace ctl
