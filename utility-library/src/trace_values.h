#pragma once

#include <cstdint>
#include <sstream>
#include <string>

namespace Trace {

/// A piece of a line with a level of its own. If that level is above the configured one, the line
/// leaves the piece out. Bound to one thread.
class BaseSnippet {
public:
    explicit BaseSnippet(std::int32_t level) : m_level(level) {}
    virtual ~BaseSnippet();
    virtual std::string str() const;

    /// 0: no level of its own.
    std::int32_t level() const { return m_level; }

protected:
    BaseSnippet(const BaseSnippet&) = delete;
    BaseSnippet& operator=(const BaseSnippet&) = delete;

    std::int32_t m_level;
    std::ostringstream m_stream;
};

/// A snippet filled by streaming; written without the blank that goes before a string piece.
class Value : public BaseSnippet {
public:
    explicit Value(std::int32_t level = 0) : BaseSnippet(level) {}

    template <class T>
    Value& operator<<(const T& piece) {
        m_stream << piece;
        return *this;
    }
};

/// A snippet formatted as by printf, cut to 255 characters.
class ValueFormat : public BaseSnippet {
public:
    ValueFormat(std::int32_t level, const char* format, ...) __attribute__((format(printf, 3, 4)));
};

/// A value shown behind the text of a line as ", name = value". Borrows both; lives for one line.
template <class T>
struct NamedValue {
    const char* name;
    const T& value;
};

template <class T>
NamedValue<T> named(const char* name, const T& value) {
    return {name, value};
}

} // namespace Trace
