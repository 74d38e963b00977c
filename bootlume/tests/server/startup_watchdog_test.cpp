#include "server/startup_watchdog.h"

#include "support/traced_test.h"

namespace {

const char* const WATCHDOG_FILE = "server/startup_watchdog.cpp";

/// Keeps the callback of each start, for the test to end the program with.
class FakeProcess : public brem::IProcess {
public:
    void start(ResultCallback callback) override { callbacks.push_back(std::move(callback)); }
    void stop() override { ++stops; }

    std::vector<ResultCallback> callbacks;
    int stops = 0;
};

class StartupWatchdog : public TracedTest {
protected:
    FakeProcess m_vrx;
    FakeProcess m_plain;
    const std::string m_soft = line("WARN", "startup timeout: rebooting via VRX", WATCHDOG_FILE);
    const std::string m_hard = line("WARN", "startup timeout: rebooting", WATCHDOG_FILE);
};

TEST_F(StartupWatchdog, DoesNothingBeforeALimit) {
    const auto soft = softTimeout(m_vrx, m_plain);
    const auto hard = hardTimeout(m_plain);
    EXPECT_TRUE(m_vrx.callbacks.empty() && m_plain.callbacks.empty());
    EXPECT_THAT(lines(), testing::IsEmpty());
}

TEST_F(StartupWatchdog, RebootsThroughTheDeviceStackAtTheSoftLimit) {
    softTimeout(m_vrx, m_plain)();
    ASSERT_EQ(m_vrx.callbacks.size(), 1U);
    EXPECT_TRUE(m_plain.callbacks.empty());
    m_vrx.callbacks[0](0);
    EXPECT_TRUE(m_plain.callbacks.empty());
    EXPECT_THAT(lines(), testing::ElementsAre(
                             m_soft, line("INFO", "VRX reboot started with result: , result = 0",
                                          WATCHDOG_FILE)));
}

TEST_F(StartupWatchdog, RebootsPlainlyWhereThatFails) {
    for (const int result : {1, 255, -1}) {
        softTimeout(m_vrx, m_plain)();
        m_vrx.callbacks.back()(result);
    }
    ASSERT_EQ(m_plain.callbacks.size(), 3U);
    EXPECT_EQ(m_vrx.callbacks.size(), 3U);
    EXPECT_EQ(lines()[1],
              line("ERROR", "failed to start VRX reboot, rebooting, result = 1", WATCHDOG_FILE));
    EXPECT_EQ(lines()[5],
              line("ERROR", "failed to start VRX reboot, rebooting, result = -1", WATCHDOG_FILE));
}

TEST_F(StartupWatchdog, OnlyTellsHowThePlainRebootWent) {
    softTimeout(m_vrx, m_plain)();
    m_vrx.callbacks[0](2);
    m_plain.callbacks.at(0)(0);
    hardTimeout(m_plain)();
    m_plain.callbacks.at(1)(-1);
    EXPECT_EQ(m_plain.callbacks.size(), 2U);
    EXPECT_THAT(
        lines(),
        testing::ElementsAre(
            m_soft,
            line("ERROR", "failed to start VRX reboot, rebooting, result = 2", WATCHDOG_FILE),
            line("INFO", "reboot started with result: , result = 0", WATCHDOG_FILE), m_hard,
            line("INFO", "reboot started with result: , result = -1", WATCHDOG_FILE)));
}

TEST_F(StartupWatchdog, RebootsAllTheSameWhereNothingIsTraced) {
    Trace::Log::s_configuration.level = Trace::LEVEL_FATAL;
    softTimeout(m_vrx, m_plain)();
    m_vrx.callbacks.at(0)(1);
    hardTimeout(m_plain)();
    EXPECT_EQ(m_plain.callbacks.size(), 2U);
    EXPECT_THAT(lines(), testing::IsEmpty());
}

TEST_F(StartupWatchdog, StopsNoProgram) {
    softTimeout(m_vrx, m_plain)();
    hardTimeout(m_plain)();
    m_vrx.callbacks.at(0)(0);
    EXPECT_EQ(m_vrx.stops + m_plain.stops, 0);
}

} // namespace
