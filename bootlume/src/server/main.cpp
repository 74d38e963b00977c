#include "connection/unix_server.h"
#include "dispatcher.h"
#include "display/overlay.h"
#include "process.h"
#include "server/ending.h"
#include "server/globals.h"
#include "server/inheritance.h"
#include "server/latch.h"
#include "server/startup_watchdog.h"
#include "thread_name.h"
#include "tracing.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

const char* REBOOT_COMMAND = "REBOOT_COMMAND";
const char* VRX_REBOOT_COMMAND = "VRX_REBOOT_COMMAND";
const char* SPLASH_TIMEOUT = "SPLASH_TIMEOUT";
const char* SPLASH_TIMEOUT_HARD = "SPLASH_TIMEOUT_HARD";
const char* socket_path = "/tmp/.bootlume";
std::atomic<brem::IDispatcher*> gdispatcher{nullptr};

static std::string defaultVrxRebootCommand = "/sbin/vrx_reboot";
static std::string defaultRebootCommand = "/sbin/reboot";

namespace {

constexpr int DEFAULT_SOFT_LIMIT_S = 180;
constexpr int DEFAULT_HARD_LIMIT_S = 200;
constexpr std::chrono::seconds LONGEST_END(5); ///< of the renderer

void logParseFailure(const char* name, int defaultValue, const std::exception& error) {
    TRACE(Trace::LEVEL_ERROR, "failed to parse environment value: " + std::string(name) + ", using "
                                  << TRACE_VALUE(defaultValue)
                                  << (Trace::Value() << ", " << error.what()));
}

/// Hands the texts of the command line to the renderer; returns whether the watchdog is asked for.
/// A wrong number of texts ends the process.
bool readCommandLine(int argc, char* argv[], paint::Overlay& overlay) {
    // Only two characters are compared, on purpose: what follows them does not matter.
    const bool checkStartup = argc > 1 && std::strncmp(argv[1], "-c", 2) == 0;
    if (checkStartup) {
        TRACE(Trace::LEVEL_DEBUG, "startup check");
    }
    char** const texts = argv + (checkStartup ? 2 : 1);
    const auto count = argc - (texts - argv);
    if (count == 2) {
        overlay.setText(texts[0], texts[1]);
    } else if (count > 0) {
        TRACE(Trace::LEVEL_ERROR, "Usage: bootlume [-c] Text1 Text2");
        std::exit(-1);
    }
    return checkStartup;
}

/// The dispatcher, and the relay that brings signals to it.
void makeDispatcher() {
    signalRelay.start(endBySignal);
    gdispatcher = new brem::Dispatcher;
    (*gdispatcher).post([] { brem::nameThisThread("bl-dispatcher"); });
}

void endDispatcher() {
    signalRelay.stop(); // from here on no signal reaches the dispatcher
    delete gdispatcher.load();
    gdispatcher = nullptr;
}

void armWatchdog(brem::IProcess& vrxRebootProcess, brem::IProcess& rebootProcess) {
    brem::IDispatcher& dispatcher = *gdispatcher;
    const int soft = getEnvParameter(SPLASH_TIMEOUT, DEFAULT_SOFT_LIMIT_S);
    dispatcher.postDelayed(std::chrono::seconds(soft),
                           softTimeout(vrxRebootProcess, rebootProcess));
    const int hard = getEnvParameter(SPLASH_TIMEOUT_HARD, DEFAULT_HARD_LIMIT_S);
    dispatcher.postDelayed(std::chrono::seconds(hard), hardTimeout(rebootProcess));
}

void join(std::thread& thread) {
    if (thread.joinable()) {
        thread.join();
    }
}

void runRenderer(paint::Overlay& overlay, Latch& ended) {
    overlay.run();
    ended.open();
}

/// Joins the renderer. If the display never gives a buffer back, the renderer would never end: then
/// the process ends as it is, and the kernel closes the display.
void joinRenderer(std::thread& thread, Latch& ended) {
    if (!ended.waitFor(LONGEST_END)) {
        TRACE(Trace::LEVEL_ERROR, "The display does not answer.");
        _exit(EXIT_SUCCESS);
    }
    join(thread);
}

} // namespace

std::string getEnvParameter(const char* name, const std::string& defaultValue) {
    std::string value = defaultValue;
    const char* const text = std::getenv(name);
    if (text != nullptr) {
        value = text;
    }
    // The separator before the value is doubled, on purpose.
    TRACE(Trace::LEVEL_DEBUG,
          "using parameter: " + std::string(name) + " with " << TRACE_VALUE(value));
    return value;
}

int getEnvParameter(const char* name, int defaultValue) {
    int value = defaultValue;
    const char* const text = std::getenv(name);
    if (text != nullptr) {
        try {
            value = std::stoi(text);
        } catch (const std::invalid_argument& error) {
            logParseFailure(name, defaultValue, error);
        } catch (const std::out_of_range& error) {
            logParseFailure(name, defaultValue, error);
        }
    }
    TRACE(Trace::LEVEL_DEBUG,
          "using parameter: " + std::string(name) + " with " << TRACE_VALUE(value));
    return value;
}

int main(int argc, char* argv[]) {
    signal(SIGHUP, shutdown);
    signal(SIGINT, shutdown);
    correctInheritance();
    Trace::Log::setAppName("bootlume");
    paint::Overlay overlay;
    const bool checkStartup = readCommandLine(argc, argv, overlay);
    makeDispatcher();
    const std::string vrx = getEnvParameter(VRX_REBOOT_COMMAND, defaultVrxRebootCommand);
    brem::Process vrxRebootProcess(gdispatcher, {vrx}, false);
    const std::string plain = getEnvParameter(REBOOT_COMMAND, defaultRebootCommand);
    brem::Process rebootProcess(gdispatcher, {plain}, false);
    if (checkStartup) {
        armWatchdog(vrxRebootProcess, rebootProcess);
    }
    const std::string path(socket_path);
    const CommandHandler commandHandler(overlay);
    cmd::UnixServer server(path, commandHandler);
    std::thread serverThread(&cmd::UnixServer::run, &server);
    Latch ended;
    std::thread overlayThread(runRenderer, std::ref(overlay), std::ref(ended));

    (*gdispatcher).run();

    server.stop();
    join(serverThread);
    overlay.stop();
    joinRenderer(overlayThread, ended);
    endDispatcher();
    return 0;
}
