#include "tracing.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using Trace::Log;

/// What static initialisation left, before any test ran.
struct StartState : testing::Environment {
    void SetUp() override {
        appName = Log::s_configuration.appName;
        level = Log::s_configuration.level;
        masked = !Log::s_configuration.masks.get()->empty();
        toSyslog = Log::s_configuration.toSyslog;
        path = Log::s_configFilePath;
        watched = Log::s_traceConfigThread != nullptr;
        coloured = Log::s_enableColors || Log::s_disableColors;
        alive = Log::isAlive::s_alive;
        named = Log::s_name != nullptr;
    }

    std::string appName = "unset";
    std::int32_t level = -1;
    bool masked = true;
    bool toSyslog = true;
    std::string path;
    bool watched = true;
    bool coloured = true;
    bool alive = false;
    bool named = true;
};

const auto* const s_start =
    static_cast<StartState*>(testing::AddGlobalTestEnvironment(new StartState));

TEST(TheTrace, IsUsableFromStaticInitialisation) {
    EXPECT_EQ(s_start->appName, "");
    EXPECT_EQ(s_start->level, 4);
    EXPECT_FALSE(s_start->masked);
    EXPECT_FALSE(s_start->toSyslog);
    EXPECT_EQ(s_start->path, "/opt/userdata/trace_config");
    EXPECT_FALSE(s_start->watched);
    EXPECT_FALSE(s_start->coloured);
    EXPECT_TRUE(s_start->alive);
    EXPECT_FALSE(s_start->named);
}

TEST(TheTrace, NamesAndColoursEveryLevel) {
    const std::vector<std::string> names(Trace::LEVEL_NAMES,
                                         Trace::LEVEL_NAMES + Trace::MAX_LEVEL_NAME);
    EXPECT_THAT(names,
                testing::ElementsAre("ALL", "FATAL", "ERROR", "WARN", "INFO", "DEBUG", "VERBOSE"));
    const std::vector<std::string> colours(Trace::LEVEL_COLORS,
                                           Trace::LEVEL_COLORS + Trace::MAX_LEVEL_COLOR);
    EXPECT_THAT(colours,
                testing::ElementsAre("\033[0;39;49m", "\033[1;31m", "\033[1;31m", "\033[1;33m",
                                     "\033[0;39;49m", "\033[1;36m", "\033[1;36m"));
}

} // namespace
