#pragma once

#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <streambuf>

namespace Trace {

/// The text of one line in the making: on the stack while it is short, as almost all lines are.
/// Bound to one thread.
class LineBuffer : public std::streambuf {
public:
    LineBuffer() { setp(m_short, m_short + sizeof m_short); }

    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;

    const char* data() const { return pbase(); }
    std::size_t size() const { return static_cast<std::size_t>(pptr() - pbase()); }

    void append(const char* text, std::size_t length) {
        reserve(length);
        std::memcpy(pptr(), text, length);
        advance(length);
    }
    void append(const char* text) { append(text, std::strlen(text)); }
    void append(char character) {
        reserve(1);
        *pptr() = character;
        pbump(1);
    }
    void append(char character, std::size_t count);
    /// In decimal, right-aligned with zeros or blanks in so many columns at least.
    void appendNumber(long number, std::size_t columns = 0, char fill = '0');
    /// Ends the text with a zero and returns it; nothing may be appended after this.
    const char* terminated();

protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize length) override;

private:
    // A line is made of many short pieces: what they take is here, the rare rest in the source.
    void reserve(std::size_t more) {
        if (static_cast<std::size_t>(epptr() - pptr()) < more) {
            grow(more);
        }
    }
    void advance(std::size_t count) {
        constexpr std::size_t FARTHEST = std::numeric_limits<int>::max(); // what pbump takes
        for (; count > FARTHEST; count -= FARTHEST) {
            pbump(static_cast<int>(FARTHEST));
        }
        pbump(static_cast<int>(count));
    }
    void grow(std::size_t more);

    char m_short[512];
    std::unique_ptr<char[]> m_long;
};

} // namespace Trace
