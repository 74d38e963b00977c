#include "commands.h"

#include "bound_socket.h"
#include "closing_splash.h"
#include "splash_socket.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <ctime>
#include <iomanip>
#include <iostream>

namespace ctl {
namespace {

using client::SplashSocket;
using Json = nlohmann::ordered_json;

struct State {
    bootlume_result answer;
    std::optional<client::Process> process;
};

State look(const SplashSocket& socket) {
    const bootlume_result answer = socket.probe();
    if (answer == BOOTLUME_NO_SPLASH) {
        return {answer, client::findClosing(socket.path())};
    }
    if (answer != BOOTLUME_SENT && answer != BOOTLUME_BUSY) {
        return {answer, {}};
    }
    return {answer, client::findHolder(socket.path())};
}

bool isStopped(const State& state) {
    return state.process && state.process->stopped;
}

/// It is there, and takes no commands.
bool isDeaf(const State& state) {
    return isStopped(state) || state.answer == BOOTLUME_BUSY ||
           (state.process && state.answer == BOOTLUME_NO_SPLASH);
}

std::string startOf(double ageSeconds) {
    const std::time_t start = std::time(nullptr) - static_cast<std::time_t>(ageSeconds);
    std::tm local{};
    localtime_r(&start, &local);
    char text[32] = "";
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

const char* wordFor(const State& state) {
    if (isStopped(state)) {
        return "stopped";
    }
    switch (state.answer) {
    case BOOTLUME_SENT:
        return "answers";
    case BOOTLUME_BUSY:
        return "busy";
    case BOOTLUME_NO_SPLASH:
        return state.process ? "closed" : "none";
    case BOOTLUME_FORBIDDEN:
        return "forbidden";
    case BOOTLUME_NOT_SPLASH:
        return "other";
    default:
        return "unknown";
    }
}

std::string jsonOf(const SplashSocket& socket, const State& state) {
    Json json{{"socket", socket.path()}, {"state", wordFor(state)}};
    if (state.process) {
        const double age = client::ageInSeconds(*state.process);
        json["process"] = state.process->pid;
        json["since"] = startOf(age);
        json["seconds"] = std::round(age * 10) / 10;
    }
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void printText(const SplashSocket& socket, const State& state) {
    std::cout << "a splash answers at " << socket.path() << ": ";
    if (state.process) {
        const double age = client::ageInSeconds(*state.process);
        std::cout << "process " << state.process->pid << ", since " << startOf(age) << " ("
                  << std::fixed << std::setprecision(1) << age << " s)\n";
    } else {
        std::cout << "its process belongs to another user and cannot be seen\n";
    }
}

} // namespace

int status(const Places& places, bool asJson) {
    const SplashSocket socket(places.socket);
    const State state = look(socket);
    if (asJson) {
        std::cout << jsonOf(socket, state) << '\n';
    }
    if (isDeaf(state)) {
        return doesNotAnswer(socket, "the splash at " + socket.path() + " does not answer");
    }
    if (state.answer != BOOTLUME_SENT) {
        return cannotReach(socket);
    }
    if (!asJson) {
        printText(socket, state);
    }
    return EXIT_DONE;
}

std::string statusAsJson(const Places& places) {
    const SplashSocket socket(places.socket);
    return jsonOf(socket, look(socket));
}

} // namespace ctl
