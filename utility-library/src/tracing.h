#pragma once

#include "trace_config.h"
#include "trace_level.h"
#include "trace_values.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>

namespace Trace {

// A mask names a group of subsystems (bits 16 to 19) and a subsystem in it (bits 0 to 15).
constexpr std::uint32_t MASK_GROUP = 0x000F0000;
constexpr std::uint32_t MASK_SUBSYSTEM = 0x0000FFFF;
constexpr std::uint32_t TRACE_MASK_DISPATCHER = 0x80002;
constexpr std::uint32_t TRACE_MASK_TRACING = 0x80004;

/// One log line in the making, and the facility behind it.
///
/// A line is bound to the thread that builds it and is written, whole, by its destructor. The
/// statics are safe from any thread unless they say otherwise. Build lines with the macros below.
class Log {
public:
    /// Begins a line tagged with a subsystem name; null: no tag. Borrows file and name.
    Log(std::int32_t level, const char* file, int line, const char* name);
    /// Begins a line tagged with a numeric id; 0: no id (the line still shows the tag's colon).
    Log(std::int32_t level, const char* file, int line, std::int32_t id);
    ~Log() noexcept(false); // putting the line together may throw std::bad_alloc

    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    /// A string piece is preceded by one blank.
    Log& operator<<(const std::string& text);
    Log& operator<<(const char* text);
    /// Appended as it is, if its level is not above the configured one.
    Log& operator<<(const BaseSnippet& snippet);
    template <class T>
    Log& operator<<(const NamedValue<T>& named) {
        m_head << ", " << named.name << " = " << named.value;
        return *this;
    }
    /// Numbers and characters follow the stream's formatting, without a blank.
    template <class T, class = std::enable_if_t<std::is_arithmetic_v<T>>>
    Log& operator<<(const T& value) {
        m_head << value;
        return *this;
    }

    /// The stream that takes the prefix and then the message.
    std::ostream& stream() { return m_head; }

    /// The configured level: a line above it is not written.
    static std::int32_t level() { return s_configuration.level.load(std::memory_order_relaxed); }

    /// Whether a configured word shares a group bit and a subsystem bit with the mask.
    static bool isMaskEnabled(std::uint32_t mask);

    /// Names the application: opens syslog under the name, reads the configuration file once and
    /// starts its watcher. Called once, by main, before other threads trace.
    static void setAppName(const std::string& name);

    /// TraceConfig::parse for this application. Only for the threads that may read the file (see
    /// readConfig).
    static TraceConfig parseEntry(const std::string& line);

    /// Reads the configuration file; false if it has no entry for this application. Only for the
    /// thread that calls setAppName, and then for the watcher's.
    static bool readConfig();

    /// Body of the watcher's thread.
    static void configThread();

    static TraceConfig s_configuration;
    static std::string s_configFilePath;
    static std::thread* s_traceConfigThread;
    static std::atomic<bool> s_enableColors;
    static std::atomic<bool> s_disableColors;
    static std::mutex s_logMutex; ///< held while a whole line is written
    static char* s_name;          ///< syslog's ident, as given; must live while syslog is open

    /// True from static initialisation until the facility ends; the watcher runs while it is.
    class isAlive {
    public:
        isAlive() { s_alive = true; }
        ~isAlive() { s_alive = false; }
        isAlive(const isAlive&) = delete;
        isAlive& operator=(const isAlive&) = delete;

        static std::atomic<bool> s_alive;
    };
    static isAlive s_isAlive;

private:
    void appendTrailer(std::string& text) const;

    std::int32_t m_level;
    bool m_toSyslog; ///< this and the color as they were when the line began
    const char* m_color;
    const char* m_file;
    int m_line;
    std::stringbuf m_text; ///< what the head stream has taken
    std::ostream m_head{&m_text};
};

/// Ends the facility at process exit: stops and joins the watcher.
class Initializer {
public:
    Initializer() = default;
    ~Initializer();
    Initializer(const Initializer&) = delete;
    Initializer& operator=(const Initializer&) = delete;
};

} // namespace Trace

// The message is evaluated only if the line is written; the level is tested first. It is a chain of
// pieces to stream, so it stands without parentheses. NOLINTBEGIN(bugprone-macro-parentheses)
#define TRACE_ID(LEVEL, ID, MESSAGE)                                                               \
    do {                                                                                           \
        if ((LEVEL) <= Trace::Log::level()) {                                                      \
            Trace::Log((LEVEL), __FILE__, __LINE__, static_cast<std::int32_t>(ID)) << MESSAGE;     \
        }                                                                                          \
    } while (false)
#define TRACE(LEVEL, MESSAGE) TRACE_ID(LEVEL, 0, MESSAGE)

// For the dispatcher and this facility: the mask is tested once the level has passed.
#define TRACE_MASKED(LEVEL, MASK, NAME, MESSAGE)                                                   \
    do {                                                                                           \
        if ((LEVEL) <= Trace::Log::level() && Trace::Log::isMaskEnabled(MASK)) {                   \
            Trace::Log((LEVEL), __FILE__, __LINE__, static_cast<const char*>(NAME)) << MESSAGE;    \
        }                                                                                          \
    } while (false)

// For this facility's own lines.
#define TRACE_TRACING(MESSAGE)                                                                     \
    TRACE_MASKED(Trace::LEVEL_VERBOSE, Trace::TRACE_MASK_TRACING, "TRACING", MESSAGE)
// NOLINTEND(bugprone-macro-parentheses)

// A value named after its expression.
#define TRACE_VALUE(EXPRESSION) Trace::named(#EXPRESSION, EXPRESSION)
