// A datagram, from the command handler to the renderer's two texts.
#include "fuzzing.h"

#include "server/ending.h"
#include "server/globals.h"
#include "tracing.h"

std::atomic<brem::IDispatcher*> gdispatcher{nullptr};

namespace {

struct Texts {
    int calls = 0;
    std::string title;
    std::string lines;
};

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
    Texts texts;
    handleCommand(message, [&texts](const std::string& title, const std::string& lines) {
        ++texts.calls;
        texts.title = title;
        texts.lines = lines;
    });
    require(texts.calls == (isTextCommand(message) ? 1 : 0), "only a text command sets texts");
    if (texts.calls == 1) {
        const std::string whole = texts.title + ";" + texts.lines;
        require(message == whole || message == whole + ";", "both texts arrive as they were sent");
    }
    return 0;
}
