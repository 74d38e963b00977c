#include "tracing.h"

#include "trace_watcher.h"

#include <sys/prctl.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

namespace Trace {

namespace {

const char* const COLOR_RESET = "\033[0;39;49m";
constexpr std::size_t THREAD_COLUMNS = 16;
constexpr std::size_t LEVEL_COLUMNS = 7;
constexpr int NOT_SENT = -1;
// syslog's priority of each level; level 0 is not sent.
constexpr int SYSLOG_PRIORITIES[MAX_LEVEL_NAME] = {NOT_SENT, LOG_EMERG, LOG_ERR,  LOG_WARNING,
                                                   LOG_INFO, LOG_DEBUG, LOG_DEBUG};

bool isNamedLevel(std::int32_t level) {
    return level > LEVEL_ALL && level < MAX_LEVEL_NAME;
}

/// The level as an index that is never outside a table.
std::int32_t tableIndex(std::int32_t level, std::int32_t size) {
    return level < 0 || level >= size ? 0 : level;
}

/// The line's colour; empty if it has none.
const char* colorOf(std::int32_t level) {
    if (Log::s_disableColors) {
        return "";
    }
    const bool loud = level >= LEVEL_FATAL && level <= LEVEL_WARN;
    return Log::s_enableColors || loud ? LEVEL_COLORS[tableIndex(level, MAX_LEVEL_COLOR)] : "";
}

/// The tag begins with a colon of its own: an id shows as two colons and its digits, on purpose.
std::string tagOf(std::int32_t id) {
    char tag[16] = "";
    if (id > 0) {
        std::snprintf(tag, sizeof tag, ":%x", static_cast<unsigned>(id));
    }
    return tag;
}

std::string threadName() {
    char name[16] = ""; // the kernel's limit, with the final zero
    prctl(PR_GET_NAME, name, 0, 0, 0);
    return name;
}

/// The date and time of a second, in local time. Valid until the thread asks for another second.
const char* dateOf(time_t second) {
    thread_local time_t lastSecond = 0;
    thread_local char date[256] = ""; // empty before the first
    if (second != lastSecond || *date == '\0') {
        tm local{};
        tzset(); // localtime_r alone would keep the first time zone that it saw
        localtime_r(&second, &local);
        std::strftime(date, sizeof date, "%Y%m%d-%H%M%S", &local);
        lastSecond = second;
    }
    return date;
}

void appendRight(std::string& line, const std::string& text, std::size_t columns, char fill) {
    line.append(columns - std::min(columns, text.size()), fill);
    line += text;
}

/// What stands before the message of a console line.
std::string consolePrefix(std::int32_t level, const char* color, const char* tag) {
    timeval now{};
    gettimeofday(&now, nullptr);
    std::string prefix = color;
    prefix.reserve(128);
    prefix += '[';
    prefix += dateOf(now.tv_sec);
    prefix += ':';
    appendRight(prefix, std::to_string(now.tv_usec / 1000), 3, '0');
    prefix += "] (";
    prefix += std::to_string(getpid());
    prefix += ") (";
    appendRight(prefix, threadName(), THREAD_COLUMNS, ' ');
    prefix += ") ";
    appendRight(prefix, isNamedLevel(level) ? LEVEL_NAMES[level] : "", LEVEL_COLUMNS, ' ');
    if (tag != nullptr) {
        prefix += ':';
        prefix += tag;
    }
    prefix += "\t|";
    return prefix;
}

/// An error is not reported: a text that cannot be written is lost.
void writeToStandardOutput(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
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
static std::unique_ptr<TraceWatcher> s_watcher; // null until its thread is started
static Initializer sInitializer;

Log::Log(std::int32_t level, const char* file, int line, const char* name)
    : m_level(level),
      m_toSyslog(s_configuration.toSyslog),
      m_color(colorOf(level)),
      m_file(file),
      m_line(line) {
    if (m_toSyslog) {
        m_head << LEVEL_NAMES[tableIndex(level, MAX_LEVEL_NAME)] << '|' << file << ':' << line
               << ':' << threadName() << "| ";
    } else {
        const std::string prefix = consolePrefix(level, m_color, name);
        m_text.sputn(prefix.data(), static_cast<std::streamsize>(prefix.size()));
    }
}

Log::Log(std::int32_t level, const char* file, int line, std::int32_t id)
    : Log(level, file, line, tagOf(id).c_str()) {}

Log& Log::operator<<(const std::string& text) {
    m_head << ' ' << text;
    return *this;
}

Log& Log::operator<<(const char* text) {
    m_head << ' ' << text;
    return *this;
}

Log& Log::operator<<(const BaseSnippet& snippet) {
    if (snippet.level() > 0 && snippet.level() < m_level) {
        std::ostringstream warning;
        warning << "WARN: loglevel wrong: " << snippet.level() << " >= " << m_level
                << " for message: " << snippet.str() << "\n";
        // Without the log's format and lock: this is no line of the log.
        writeToStandardOutput(warning.str());
    }
    if (snippet.level() <= level()) {
        m_head << snippet.str();
    }
    return *this;
}

Log::~Log() noexcept(false) {
    std::string text = m_text.str();
    if (!m_toSyslog) {
        appendTrailer(text);
    }
    const std::lock_guard<std::mutex> lock(s_logMutex);
    if (m_toSyslog) {
        writeToSyslog(m_level, text);
    } else {
        writeToStandardOutput(text);
    }
}

void Log::appendTrailer(std::string& text) const {
    text += "| ";
    if (m_file != nullptr) { // without a file the rest is left out
        text += m_file;
        text += ':';
        text += std::to_string(m_line);
        text += *m_color != '\0' ? COLOR_RESET : "";
    }
    text += '\n';
}

bool Log::isMaskEnabled(std::uint32_t mask) {
    const auto words = s_configuration.masks.get();
    return std::any_of(words->begin(), words->end(), [mask](std::uint32_t word) {
        return (word & mask & MASK_GROUP) != 0 && (word & mask & MASK_SUBSYSTEM) != 0;
    });
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
        s_watcher = std::make_unique<TraceWatcher>();
        s_traceConfigThread = new std::thread(configThread);
    }
}

TraceConfig Log::parseEntry(const std::string& line) {
    return TraceConfig::parse(line, s_configuration.appName);
}

bool Log::readConfig() {
    return s_configuration.readFrom(s_configFilePath);
}

void Log::configThread() {
    s_watcher->run();
}

Initializer::~Initializer() {
    if (Log::s_traceConfigThread != nullptr) {
        Log::isAlive::s_alive = false;
        s_watcher->wake();
        Log::s_traceConfigThread->join();
        delete Log::s_traceConfigThread;
        Log::s_traceConfigThread = nullptr;
    }
    std::free(Log::s_name);
    Log::s_name = nullptr;
}

} // namespace Trace
