#include "server/ending.h"

#include "server/globals.h"
#include "split.h"
#include "tracing.h"

#include <vector>

SignalRelay signalRelay;

namespace {

void stopDispatcher() {
    brem::IDispatcher* const dispatcher = gdispatcher;
    if (dispatcher != nullptr) {
        dispatcher->stop();
    }
}

} // namespace

void shutdown(int sig) {
    if (gdispatcher != nullptr) {
        signalRelay.raise(sig);
    }
}

void endBySignal(int sig) {
    TRACE(Trace::LEVEL_DEBUG, "End splash-screen with SIG." << TRACE_VALUE(sig));
    stopDispatcher();
}

// By value, as the server hands a command over. NOLINTNEXTLINE(performance-unnecessary-value-param)
void CommandHandler::operator()(std::string message) const {
    if (message == "QUIT") {
        TRACE(Trace::LEVEL_DEBUG, "End splash-screen over socket command.");
        stopDispatcher();
        return;
    }
    const std::vector<std::string> tmp = brem::split(message, ";");
    if (tmp.size() == 2) {
        m_overlay.setText(tmp[0], tmp[1]);
    } else {
        TRACE(Trace::LEVEL_WARN, "Wrong message format" << TRACE_VALUE(tmp.size()));
    }
}
