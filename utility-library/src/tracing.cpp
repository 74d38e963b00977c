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
#include <sstream>

namespace Trace {

namespace {

const char* const COLOR_RESET = "\033[0;39;49m";
constexpr std::size_t THREAD_COLUMNS = 16;
constexpr std::size_t LEVEL_COLUMNS = 7;
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

/// The date and time of a second, in local time. Valid until the thread asks again.
const char* dateOf(time_t second) {
    thread_local time_t lastSecond = -1;
    thread_local char date[256] = "";
    if (second != lastSecond) {
        tm local{};
        tzset(); // localtime_r alone would keep the first time zone that it saw
        localtime_r(&second, &local);
        std::strftime(date, sizeof date, "%Y%m%d-%H%M%S", &local);
        lastSecond = second;
    }
    return date;
}

void appendRight(LineBuffer& line, const char* text, std::size_t columns) {
    const std::size_t length = std::strlen(text);
    if (length < columns) {
        line.append(' ', columns - length);
    }
    line.append(text, length);
}

/// An error is not reported: a line that cannot be written is lost.
void writeToStandardOutput(const char* text, std::size_t length) {
    std::fwrite(text, 1, length, stdout);
    std::fflush(stdout);
}

void writeToSyslog(std::int32_t level, const char* text) {
    if (!isNamedLevel(level)) {
        return;
    }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    // The text is the format on purpose: a "%" in a message is read as a conversion.
    syslog(SYSLOG_PRIORITIES[level], text);
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
    : m_level(level),
      m_toSyslog(s_configuration.toSyslog),
      m_file(file),
      m_line(line),
      m_head(&m_text) {
    begin(name);
}

Log::Log(std::int32_t level, const char* file, int line, std::int32_t id)
    : m_level(level),
      m_toSyslog(s_configuration.toSyslog),
      m_file(file),
      m_line(line),
      m_head(&m_text) {
    // The tag begins with a colon of its own: an id shows as two colons and its digits, on purpose.
    char tag[16] = "";
    if (id > 0) {
        std::snprintf(tag, sizeof tag, ":%x", static_cast<unsigned>(id));
    }
    begin(tag);
}

void Log::begin(const char* tag) {
    if (m_toSyslog) {
        beginSyslogLine();
    } else {
        beginConsoleLine(tag);
    }
}

void Log::beginSyslogLine() {
    m_text.append(LEVEL_NAMES[tableIndex(m_level, MAX_LEVEL_NAME)]);
    m_text.append('|');
    if (m_file == nullptr) {
        m_head.setstate(std::ios_base::badbit); // the rest of the line is lost
        return;
    }
    m_text.append(m_file);
    m_text.append(':');
    m_text.appendNumber(m_line);
    m_text.append(':');
    m_text.append(ThreadName().text);
    m_text.append("| ");
}

void Log::beginConsoleLine(const char* tag) {
    timeval now{};
    gettimeofday(&now, nullptr);
    const ThreadName thread;
    const char* const name = isNamedLevel(m_level) ? LEVEL_NAMES[m_level] : "";
    m_color = colorOf(m_level);

    m_text.append(m_color);
    m_text.append('[');
    m_text.append(dateOf(now.tv_sec));
    m_text.append(':');
    m_text.appendNumber(static_cast<long>(now.tv_usec / 1000), 3);
    m_text.append("] (");
    m_text.appendNumber(getpid());
    m_text.append(") (");
    appendRight(m_text, thread.text, THREAD_COLUMNS);
    m_text.append(") ");
    appendRight(m_text, name, LEVEL_COLUMNS);
    if (tag != nullptr) {
        m_text.append(':');
        m_text.append(tag);
    }
    m_text.append("\t|");
}

void Log::endConsoleLine() {
    m_text.append("| ");
    if (m_file != nullptr) { // without a file the rest of the trailer is lost, too
        m_text.append(m_file);
        m_text.append(':');
        m_text.appendNumber(m_line);
        m_text.append(*m_color != '\0' ? COLOR_RESET : "");
    }
    m_text.append('\n');
}

void Log::appendString(const char* text, std::size_t length) {
    if (m_head.good()) {
        m_text.append(' ');
        m_text.append(text, length);
    }
}

Log& Log::operator<<(const std::string& text) {
    appendString(text.data(), text.size());
    return *this;
}

Log& Log::operator<<(const char* text) {
    if (text == nullptr) {
        m_head.setstate(std::ios_base::badbit);
    } else {
        appendString(text, std::strlen(text));
    }
    return *this;
}

Log& Log::operator<<(const BaseSnippet& snippet) {
    if (snippet.level() > 0 && snippet.level() < m_level) {
        std::ostringstream warning;
        warning << "WARN: loglevel wrong: " << snippet.level() << " >= " << m_level
                << " for message: " << snippet.str() << "\n";
        const std::string text = warning.str();
        // Outside the log's format and lock, as it says nothing that a line would say.
        writeToStandardOutput(text.data(), text.size());
    }
    if (snippet.level() <= level()) {
        m_head << snippet.str();
    }
    return *this;
}

Log::~Log() {
    if (m_toSyslog) {
        const char* const text = m_text.terminated();
        const std::lock_guard<std::mutex> lock(s_logMutex);
        writeToSyslog(m_level, text);
        return;
    }
    endConsoleLine();
    const std::lock_guard<std::mutex> lock(s_logMutex);
    writeToStandardOutput(m_text.data(), m_text.size());
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
