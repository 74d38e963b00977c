// A datagram, from the command handler to the renderer's two texts.
#include "fuzzing.h"

#include "server/ending.h"
#include "server/globals.h"
#include "support/recorded_overlay.h"
#include "tracing.h"

std::atomic<brem::IDispatcher*> gdispatcher{nullptr};

namespace {

/// Whether the message has the form of a text command, told without splitting it.
bool isTextCommand(const std::string& message) {
    const auto first = message.find(';');
    if (message == "QUIT" || first == std::string::npos || first + 1 == message.size()) {
        return false;
    }
    const auto second = message.find(';', first + 1);
    return second == std::string::npos || second + 1 == message.size();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    discardOutput();
    Trace::Log::s_configuration.level = Trace::LEVEL_VERBOSE;
    const std::string message = textOf(data, size);
    static paint::Overlay& overlay = *new paint::Overlay;
    recorded_overlay::Texts& texts = recorded_overlay::texts;
    texts.clear();
    CommandHandler{overlay}(message);
    require(texts.size() == (isTextCommand(message) ? 1 : 0), "only a text command sets texts");
    if (texts.size() == 1) {
        const std::string whole = texts[0].first + ";" + texts[0].second;
        require(message == whole || message == whole + ";", "both texts arrive as they were sent");
    }
    return 0;
}
