#include "tracing.h"

#include <sys/prctl.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iomanip>

namespace Trace {

namespace {

const char* const COLOR_RESET = "\033[0;39;49m";
constexpr int NOT_SENT = -1;
// syslog's priority of each level; level 0 is not sent.
const int SYSLOG_PRIORITIES[MAX_LEVEL_NAME] = {NOT_SENT, LOG_EMERG, LOG_ERR,  LOG_WARNING,
                                               LOG_INFO, LOG_DEBUG, LOG_DEBUG};

bool isNamedLevel(std::int32_t level) {
    return level > LEVEL_ALL && level < MAX_LEVEL_NAME;
}

/// The level as an index that is never outside a table.
std::int32_t tableIndex(std::int32_t level, std::int32_t size) {
    return level < 0 || level >= size ? 0 : level;
}

struct ThreadName {
    char text[16] = ""; // the kernel's limit, with the final zero
    ThreadName() { prctl(PR_GET_NAME, text, 0, 0, 0); }
};

/// The line's colour; empty where it has none.
const char* colorOf(std::int32_t level) {
    if (Log::s_disableColors) {
        return "";
    }
    const bool loud = level >= LEVEL_FATAL && level <= LEVEL_WARN;
    return Log::s_enableColors || loud ? LEVEL_COLORS[tableIndex(level, MAX_LEVEL_COLOR)] : "";
}

void writeToSyslog(std::int32_t level, const std::string& text) {
    if (!isNamedLevel(level)) {
        return;
    }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    // The text is the format on purpose: a "%" in a message is read as a conversion.
    syslog(SYSLOG_PRIORITIES[level], text.c_str());
#pragma GCC diagnostic pop
}

} // namespace

const char* const LEVEL_NAMES[MAX_LEVEL_NAME] = {"ALL",  "FATAL", "ERROR",  "WARN",
                                                 "INFO", "DEBUG", "VERBOSE"};
const char* const LEVEL_COLORS[MAX_LEVEL_COLOR] = {"\033[0;39;49m", "\033[1;31m",    "\033[1;31m",
                                                   "\033[1;33m",    "\033[0;39;49m", "\033[1;36m",
                                                   "\033[1;36m"};

// In this order: alive, configured, where the file is; the facility's end is registered last, so
// that it comes first at exit.
std::atomic<bool> Log::isAlive::s_alive{false};
Log::isAlive Log::s_isAlive;
TraceConfig Log::s_configuration;
std::string Log::s_configFilePath = "/opt/userdata/trace_config";
std::thread* Log::s_traceConfigThread = nullptr;
std::atomic<bool> Log::s_enableColors{false};
std::atomic<bool> Log::s_disableColors{false};
std::mutex Log::s_logMutex;
char* Log::s_name = nullptr;
static Initializer sInitializer;

Log::Log(std::int32_t level, const char* file, int line, const char* name)
    : m_level(level), m_toSyslog(s_configuration.toSyslog) {
    begin(file, line, name);
}

Log::Log(std::int32_t level, const char* file, int line, std::int32_t id)
    : m_level(level), m_toSyslog(s_configuration.toSyslog) {
    // The tag begins with a colon of its own: an id shows as two colons and its digits, on purpose.
    char tag[16] = "";
    if (id > 0) {
        std::snprintf(tag, sizeof tag, ":%x", static_cast<unsigned>(id));
    }
    begin(file, line, tag);
}

void Log::begin(const char* file, int line, const char* tag) {
    if (m_toSyslog) {
        beginSyslogLine(file, line);
    } else {
        beginConsoleLine(file, line, tag);
    }
}

void Log::beginSyslogLine(const char* file, int line) {
    m_head << LEVEL_NAMES[tableIndex(m_level, MAX_LEVEL_NAME)] << "|" << file << ":" << line << ":"
           << ThreadName().text << "| ";
}

void Log::beginConsoleLine(const char* file, int line, const char* tag) {
    timeval now{};
    gettimeofday(&now, nullptr);
    const time_t seconds = now.tv_sec;
    tm local{};
    tzset(); // localtime_r alone would keep the first time zone that it saw
    localtime_r(&seconds, &local);
    char date[256] = "";
    std::strftime(date, sizeof date, "%Y%m%d-%H%M%S", &local);

    const char* const color = colorOf(m_level);
    m_head << color << "[" << date << ":" << std::setfill('0') << std::setw(3) << now.tv_usec / 1000
           << std::setfill(' ') << "] (" << getpid() << ") (" << std::setw(16) << ThreadName().text
           << ") " << std::setw(7) << (isNamedLevel(m_level) ? LEVEL_NAMES[m_level] : "");
    if (tag != nullptr) {
        m_head << ":" << tag;
    }
    m_head << "\t|";
    m_tail << "| " << file << ":" << line << (*color != '\0' ? COLOR_RESET : "");
}

Log& Log::operator<<(const std::string& text) {
    m_head << " " << text;
    return *this;
}

Log& Log::operator<<(const char* text) {
    m_head << " " << text;
    return *this;
}

Log& Log::operator<<(const BaseSnippet& snippet) {
    if (snippet.level() > 0 && snippet.level() < m_level) {
        std::ostringstream warning;
        warning << "WARN: loglevel wrong: " << snippet.level() << " >= " << m_level
                << " for message: " << snippet.str() << "\n";
        const std::string text = warning.str();
        // Outside the log's format and lock, as it says nothing that a line would say.
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
    }
    if (snippet.level() <= level()) {
        m_head << snippet.str();
    }
    return *this;
}

Log::~Log() {
    const std::string head = m_head.str();
    const std::string tail = m_tail.str() + "\n";
    const std::lock_guard<std::mutex> lock(s_logMutex);
    if (m_toSyslog) {
        writeToSyslog(m_level, head);
        return;
    }
    std::fwrite(head.data(), 1, head.size(), stdout);
    std::fwrite(tail.data(), 1, tail.size(), stdout);
    std::fflush(stdout);
}

bool Log::isMaskEnabled(std::uint32_t mask) {
    const auto words = s_configuration.masks.words();
    if (!words) {
        return false;
    }
    for (const std::uint32_t word : *words) {
        const std::uint32_t shared = word & mask;
        if ((shared & MASK_GROUP) != 0 && (shared & MASK_SUBSYSTEM) != 0) {
            return true;
        }
    }
    return false;
}

void Log::setAppName(const std::string& name) {
    s_configuration.appName = name;
    char* const previous = s_name;
    s_name = strdup(name.c_str());
    closelog();
    openlog(s_name, LOG_PID | LOG_CONS | LOG_NDELAY, LOG_LOCAL1);
    std::free(previous);
    for (char& character : s_configuration.appName) {
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    }
    if (s_traceConfigThread == nullptr && !name.empty()) {
        readConfig();
        startWatcher();
    }
}

} // namespace Trace
