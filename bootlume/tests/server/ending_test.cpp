#include "server/ending.h"

#include "dispatcher.h"
#include "server/globals.h"
#include "support/fake_dispatcher.h"
#include "support/recorded_overlay.h"
#include "support/traced_test.h"
#include "support/waiting.h"

#include <signal.h>

#include <utility>

namespace {

const char* const ENDING_FILE = "server/ending.cpp";

using recorded_overlay::Texts;

class Ending : public TracedTest {
protected:
    Ending() { gdispatcher = &m_dispatcher; }
    ~Ending() override {
        gdispatcher = nullptr;
        texts.clear();
    }

    FakeDispatcher m_dispatcher;
    paint::Overlay m_overlay;
    const CommandHandler handle{m_overlay};
    Texts& texts = recorded_overlay::texts;
};

TEST_F(Ending, QuitStopsTheDispatcher) {
    handle("QUIT");
    EXPECT_EQ(m_dispatcher.stops, 1);
    EXPECT_EQ(texts, Texts());
    EXPECT_THAT(lines(), testing::ElementsAre(
                             line("DEBUG", "End splash-screen over socket command.", ENDING_FILE)));
}

TEST_F(Ending, QuitWithoutADispatcherIsOnlyTraced) {
    gdispatcher = nullptr;
    handle("QUIT");
    EXPECT_EQ(m_dispatcher.stops, 0);
    EXPECT_EQ(lines().size(), 1U);
}

TEST_F(Ending, TwoFieldsAreTheTexts) {
    handle("title;lines");
    handle("title;one\ntwo;");
    handle(";only lines");
    handle("QUIT;now");
    handle(";;");
    EXPECT_EQ(texts, (Texts{{"title", "lines"},
                            {"title", "one\ntwo"},
                            {"", "only lines"},
                            {"QUIT", "now"},
                            {"", ""}}));
    EXPECT_EQ(m_dispatcher.stops, 0);
    EXPECT_THAT(lines(), testing::IsEmpty());
}

TEST_F(Ending, AnyOtherNumberOfFieldsIsRefused) {
    const std::vector<std::pair<std::string, int>> cases = {
        {"", 0},      {"quit", 1},  {"QUIT\n", 1}, {"QUIT;", 1}, {";", 1},
        {"title", 1}, {"a;b;c", 3}, {"a;;b", 3},   {";;;", 3},   {std::string("QUIT\0", 5), 1}};
    std::vector<std::string> expected;
    for (const auto& [message, pieces] : cases) {
        handle(message);
        expected.push_back(line(
            "WARN", "Wrong message format, tmp.size() = " + std::to_string(pieces), ENDING_FILE));
    }
    EXPECT_EQ(lines(), expected);
    EXPECT_EQ(texts, Texts());
    EXPECT_EQ(m_dispatcher.stops, 0);
}

TEST_F(Ending, ASignalStopsTheDispatcherOnTheRelaysThread) {
    signalRelay.start(endBySignal);
    shutdown(SIGINT);
    EXPECT_TRUE(eventually([this] { return m_dispatcher.stops != 0; }));
    signalRelay.stop();
    EXPECT_EQ(m_dispatcher.stops, 1);
    EXPECT_THAT(lines(), testing::ElementsAre(
                             line("DEBUG", "End splash-screen with SIG., sig = 2", ENDING_FILE)));
}

TEST_F(Ending, ASignalWithoutADispatcherIsSwallowed) {
    gdispatcher = nullptr;
    shutdown(SIGINT); // had it been kept, the relay would hand it on as soon as it starts
    gdispatcher = &m_dispatcher;
    signalRelay.start(endBySignal);
    shutdown(SIGHUP);
    EXPECT_TRUE(eventually([this] { return m_dispatcher.stops != 0; }));
    signalRelay.stop();
    EXPECT_THAT(lines(), testing::ElementsAre(
                             line("DEBUG", "End splash-screen with SIG., sig = 1", ENDING_FILE)));
}

TEST_F(Ending, AStopBeforeTheLoopRunsIsLost) {
    brem::Dispatcher dispatcher;
    gdispatcher = &dispatcher;
    handle("QUIT");
    endBySignal(SIGHUP);
    bool ran = false;
    dispatcher.post([this, &ran] {
        ran = true;
        handle("QUIT"); // this one is not
    });
    dispatcher.run();
    EXPECT_TRUE(ran);
}

} // namespace
