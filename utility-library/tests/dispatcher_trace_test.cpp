#include "dispatcher.h"

#include "support/stdout_capture.h"
#include "support/trace_text.h"

#include "tracing.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

/// The lines behind the thread's name, without their line numbers.
std::vector<std::string> tracesOf(const std::string& text) {
    std::vector<std::string> traces;
    for (const std::string& line : linesOf(text)) {
        const std::string trace = withoutTimeAndProcess(withoutLineNumber(line));
        const std::size_t name = std::string("(a name of 16 ...) ").size();
        traces.push_back(trace.size() > name ? trace.substr(name) : "no trace line: " + line);
    }
    return traces;
}

std::string verbose(const std::string& text) {
    return "VERBOSE:DISPATCHER\t| " + text + "| utility-library/src/dispatcher.cpp:";
}

const char* const DELAYED =
    "  DEBUG:DISPATCHER\t| post delayed| utility-library/src/dispatcher.cpp:";

class ATracedDispatcher : public testing::Test {
protected:
    ~ATracedDispatcher() override { configure(4, {}); }

    static void configure(std::int32_t level, Trace::MaskWords::Words masks) {
        Trace::Log::s_configuration.level = level;
        Trace::Log::s_configuration.masks.set(std::move(masks));
    }

    /// The traces of one of each operation.
    static std::vector<std::string> tracesOfALife() {
        const StdoutCapture output;
        {
            brem::Dispatcher dispatcher;
            dispatcher.postDelayed(1ms, {});
            dispatcher.postDelayed(1s, {});
            dispatcher.postDelayed(1min, {});
            dispatcher.size();
            dispatcher.clear();
            dispatcher.post({});
            dispatcher.shutdown();
            dispatcher.run();
        }
        return tracesOf(output.text());
    }
};

TEST_F(ATracedDispatcher, TellsEachOperation) {
    configure(6, {0x80002});
    EXPECT_THAT(tracesOfALife(),
                ElementsAre(verbose("create dispatcher"), DELAYED, DELAYED, DELAYED,
                            verbose("size"), verbose("clear"), verbose("post message"),
                            verbose("post message"), verbose("entering dispatcher loop"),
                            verbose("got message"), verbose("got message"),
                            verbose("exiting dispatcher loop"), verbose("destroy dispatcher")));
}

TEST_F(ATracedDispatcher, TellsOnlyDelayedPostsAtDebug) {
    configure(5, {0x80002});
    EXPECT_THAT(tracesOfALife(), ElementsAre(DELAYED, DELAYED, DELAYED));
}

TEST_F(ATracedDispatcher, IsSilentWithoutItsMask) {
    configure(6, {});
    EXPECT_THAT(tracesOfALife(), testing::IsEmpty());
    configure(6, {0x80004});
    EXPECT_THAT(tracesOfALife(), testing::IsEmpty());
}

TEST_F(ATracedDispatcher, IsSilentAtInfo) {
    configure(4, {0x80002});
    EXPECT_THAT(tracesOfALife(), testing::IsEmpty());
}

TEST_F(ATracedDispatcher, DoesNotTellTheExitThatAnExceptionMakes) {
    configure(6, {0x80002});
    const StdoutCapture output;
    {
        brem::Dispatcher dispatcher;
        dispatcher.post([] { throw 1; });
        EXPECT_THROW(dispatcher.run(), int);
    }
    EXPECT_THAT(tracesOf(output.text()),
                ElementsAre(verbose("create dispatcher"), verbose("post message"),
                            verbose("entering dispatcher loop"), verbose("got message"),
                            verbose("destroy dispatcher")));
}

} // namespace
