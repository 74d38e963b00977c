#include "trace_values.h"

#include <cstdarg>
#include <cstdio>

namespace Trace {

BaseSnippet::~BaseSnippet() = default;

std::string BaseSnippet::str() const {
    return m_stream.str();
}

ValueFormat::ValueFormat(std::int32_t level, const char* format, ...) : BaseSnippet(level) {
    char text[256] = "";
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started on the line above
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    m_stream << text;
}

} // namespace Trace
