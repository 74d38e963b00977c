#include "support/stdout_capture.h"
#include "support/trace_fixture.h"

#include "tracing.h"

#include <sstream>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using ATraceToSyslog = TraceFixture;
using Trace::Log;

TEST_F(ATraceToSyslog, SendsEachLevelWithItsPriority) {
    configure(6, {}, true);
    nameThread("bl-dispatcher");
    Log::s_enableColors = true;
    const struct {
        const char* name;
        int priority;
    } levels[] = {{"FATAL", 0}, {"ERROR", 3}, {"WARN", 4},
                  {"INFO", 6},  {"DEBUG", 7}, {"VERBOSE", 7}};
    std::int32_t level = 1;
    for (const auto& expected : levels) {
        const StdoutCapture output;
        Log(level++, "folder/file.cpp", 41, "DISPATCHER") << "post delayed";
        EXPECT_THAT(
            takeSyslogCalls(),
            ElementsAre(SyslogCall{"syslog", expected.priority, 0,
                                   std::string(expected.name) +
                                       "|folder/file.cpp:41:bl-dispatcher|  post delayed"}));
        EXPECT_EQ(output.text(), "");
    }
}

TEST_F(ATraceToSyslog, SendsTheLevelAloneWithoutAFile) {
    configure(6, {}, true);
    Log(4, nullptr, 41, 0) << "text";
    EXPECT_THAT(takeSyslogCalls(), ElementsAre(SyslogCall{"syslog", 6, 0, "INFO|"}));
}

TEST_F(ATraceToSyslog, SendsNothingAnywhereOutsideLevels1To6) {
    configure(6, {}, true);
    for (const std::int32_t level : {0, -1, 7, 1000}) {
        const StdoutCapture output;
        Log(level, "file.cpp", 41, 0) << "text";
        EXPECT_EQ(output.text(), "");
    }
    EXPECT_THAT(takeSyslogCalls(), IsEmpty());
}

TEST_F(ATraceToSyslog, TakesALevelOutsideTheTableAsAll) {
    configure(6, {}, true);
    for (const std::int32_t level : {0, -1, 7, 1000}) {
        Log line(level, "file.cpp", 41, 0);
        EXPECT_EQ(dynamic_cast<std::stringbuf&>(*line.stream().rdbuf()).str(),
                  "ALL|file.cpp:41:main| ");
    }
}

TEST_F(ATraceToSyslog, ShowsNoIdAndNoName) {
    configure(6, {}, true);
    Log(4, "file.cpp", 41, 31) << "text";
    Log(4, "file.cpp", 41, static_cast<const char*>(nullptr)) << "text";
    const SyslogCall expected{"syslog", 6, 0, "INFO|file.cpp:41:main|  text"};
    EXPECT_THAT(takeSyslogCalls(), ElementsAre(expected, expected));
}

TEST_F(ATraceToSyslog, HandsTheTextOverAsTheFormat) {
    configure(6, {}, true);
    Log(3, "file.cpp", 41, 0) << "100 %d";
    EXPECT_THAT(takeSyslogCalls(),
                ElementsAre(SyslogCall{"syslog", 4, 0, "WARN|file.cpp:41:main|  100 %d"}));
}

TEST_F(ATraceToSyslog, WritesTheWarningOfAWrongLevelToStandardOutput) {
    configure(6, {}, true);
    const StdoutCapture output;
    Log(2, "file.cpp", 41, 0) << Trace::ValueFormat(1, "x");
    EXPECT_EQ(output.text(), "WARN: loglevel wrong: 1 >= 2 for message: x\n");
    EXPECT_THAT(takeSyslogCalls(),
                ElementsAre(SyslogCall{"syslog", 3, 0, "ERROR|file.cpp:41:main| x"}));
}

TEST_F(ATraceToSyslog, StaysOneLineWhereTheSwitchIsTurnedMeanwhile) {
    Log::s_disableColors = true;
    const StdoutCapture output;
    {
        Log line(4, "file.cpp", 41, 0);
        Log::s_configuration.toSyslog = true;
        line << "text";
    }
    EXPECT_EQ(output.text(), prefix() + "   INFO:\t| text| file.cpp:41\n");
    EXPECT_THAT(takeSyslogCalls(), IsEmpty());
}

using AnApplicationName = TraceFixture;

TEST_F(AnApplicationName, ThatIsEmptyOpensTheLogAndStartsNoWatcher) {
    Log::s_configFilePath = "/nonexistent/trace_config";
    Log::setAppName("");
    EXPECT_THAT(takeSyslogCalls(),
                ElementsAre(SyslogCall{"closelog", 0, 0, ""}, SyslogCall{"openlog", 11, 136, ""}));
    EXPECT_EQ(Log::s_traceConfigThread, nullptr);
    EXPECT_EQ(Log::s_configuration.appName, "");
    EXPECT_STREQ(Log::s_name, "");
    Log::setAppName(""); // the copy of before is not left behind
    EXPECT_STREQ(Log::s_name, "");
}

} // namespace
