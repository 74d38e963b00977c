#include "support/trace_fixture.h"

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <iomanip>
#include <mutex>
#include <sstream>

namespace {

constexpr long LAST_SECOND_OF_JANUARY_2024 = 1706745599;
constexpr long NO_FIXED_CLOCK = -1;
std::atomic<long> s_second;
std::atomic<long> s_microseconds{NO_FIXED_CLOCK};

std::mutex s_callsMutex;
std::vector<SyslogCall> s_calls;

void record(const SyslogCall& call) {
    const std::lock_guard<std::mutex> lock(s_callsMutex);
    s_calls.push_back(call);
}

} // namespace

void nameThread(const std::string& name) {
    prctl(PR_SET_NAME, name.c_str(), 0, 0, 0);
}

std::string prefix(const std::string& thread) {
    std::ostringstream text;
    text << "[20240131-235959:007] (" << getpid() << ") (" << std::setw(16) << thread << ") ";
    return text.str();
}

TraceFixture::TraceFixture() {
    setenv("TZ", "UTC", 1);
    setSecond(LAST_SECOND_OF_JANUARY_2024);
    setMicroseconds(7'000);
    nameThread("main");
    configure(4);
    takeSyslogCalls();
}

TraceFixture::~TraceFixture() {
    configure(4);
    Trace::Log::s_configuration.appName.clear();
    Trace::Log::s_enableColors = false;
    Trace::Log::s_disableColors = false;
    s_microseconds = NO_FIXED_CLOCK;
}

void TraceFixture::configure(std::int32_t level, Trace::MaskWords::Words masks, bool toSyslog) {
    Trace::Log::s_configuration.level = level;
    Trace::Log::s_configuration.masks.set(std::move(masks));
    Trace::Log::s_configuration.toSyslog = toSyslog;
}

void TraceFixture::setSecond(long second) {
    s_second = second;
}

void TraceFixture::setMicroseconds(long microseconds) {
    s_microseconds = microseconds;
}

bool operator==(const SyslogCall& a, const SyslogCall& b) {
    return a.what == b.what && a.number == b.number && a.facility == b.facility && a.text == b.text;
}

std::ostream& operator<<(std::ostream& out, const SyslogCall& call) {
    return out << call.what << "(" << call.number << ", " << call.facility << ", \"" << call.text
               << "\")";
}

std::vector<SyslogCall> takeSyslogCalls() {
    const std::lock_guard<std::mutex> lock(s_callsMutex);
    return std::move(s_calls);
}

// These stand in front of the system's. __syslog_chk is what a fortified build calls.
extern "C" {
void openlog(const char* ident, int option, int facility);
void closelog();
void syslog(int priority, const char* format, ...);
void __syslog_chk(int priority, int flag, const char* format, ...);

void openlog(const char* ident, int option, int facility) {
    record({"openlog", option, facility, ident});
}

void closelog() {
    record({"closelog", 0, 0, ""});
}

void syslog(int priority, const char* format, ...) {
    record({"syslog", priority, 0, format});
}

void __syslog_chk(int priority, int, const char* format, ...) {
    record({"syslog", priority, 0, format});
}

int gettimeofday(struct timeval* now, void* zone) noexcept {
    const long fixed = s_microseconds;
    if (fixed == NO_FIXED_CLOCK) {
        return static_cast<int>(syscall(SYS_gettimeofday, now, zone));
    }
    now->tv_sec = s_second;
    now->tv_usec = static_cast<suseconds_t>(fixed);
    return 0;
}
}
