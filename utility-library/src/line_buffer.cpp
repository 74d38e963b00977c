#include "line_buffer.h"

#include <algorithm>
#include <charconv>

namespace Trace {

void LineBuffer::grow(std::size_t more) {
    const std::size_t used = size();
    const std::size_t capacity =
        std::max(2 * static_cast<std::size_t>(epptr() - pbase()), used + more);
    std::unique_ptr<char[]> larger(new char[capacity]);
    std::memcpy(larger.get(), pbase(), used);
    m_long = std::move(larger);
    setp(m_long.get(), m_long.get() + capacity);
    advance(used);
}

void LineBuffer::append(char character, std::size_t count) {
    reserve(count);
    std::memset(pptr(), character, count);
    advance(count);
}

void LineBuffer::appendNumber(long number, std::size_t columns, char fill) {
    char digits[24];
    const char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    const auto length = static_cast<std::size_t>(end - digits);
    if (length < columns) {
        append(fill, columns - length);
    }
    append(digits, length);
}

const char* LineBuffer::terminated() {
    append('\0');
    return data();
}

LineBuffer::int_type LineBuffer::overflow(int_type character) {
    if (!traits_type::eq_int_type(character, traits_type::eof())) {
        append(traits_type::to_char_type(character));
    }
    return traits_type::not_eof(character);
}

std::streamsize LineBuffer::xsputn(const char* text, std::streamsize length) {
    append(text, static_cast<std::size_t>(length));
    return length;
}

} // namespace Trace
