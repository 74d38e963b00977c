#pragma once

#include "tracing.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

/// Names the calling thread, as the trace lines show it.
void nameThread(const std::string& name);

/// The prefix of a console line up to the level's field, for the fixture's clock and this process.
std::string prefix(const std::string& thread = "main");

/// Every test starts with the configuration of a program that has read no file, in a thread named
/// "main", at 23:59:59.007 on 31 January 2024, UTC.
class TraceFixture : public testing::Test {
protected:
    TraceFixture();
    ~TraceFixture() override;
    TraceFixture(const TraceFixture&) = delete;
    TraceFixture& operator=(const TraceFixture&) = delete;

    void configure(std::int32_t level, Trace::MaskWords::Words masks = {}, bool toSyslog = false);
    /// Sets the clock's second, counted from the beginning of 1970.
    void setSecond(long second);
    /// Sets the microseconds of the clock's second.
    void setMicroseconds(long microseconds);
};

/// One call of the system log.
struct SyslogCall {
    std::string what; ///< "openlog", "closelog" or "syslog"
    int number;       ///< the option word, or the priority
    int facility;
    std::string text; ///< the ident, or the format as it was given
};
bool operator==(const SyslogCall& a, const SyslogCall& b);
std::ostream& operator<<(std::ostream& out, const SyslogCall& call);

/// The calls since the last one of this function.
std::vector<SyslogCall> takeSyslogCalls();
