#include "utf8_check.h"

#include <cstddef>
#include <cstdint>

namespace client {
namespace {

/// Length of the sequence that a lead byte announces, or 0; the bits it gives to the character.
std::size_t leadLength(unsigned char lead, std::uint32_t& bits) {
    if (lead < 0x80) {
        bits = lead;
        return 1;
    }
    if ((lead & 0xE0U) == 0xC0) {
        bits = lead & 0x1FU;
        return 2;
    }
    if ((lead & 0xF0U) == 0xE0) {
        bits = lead & 0x0FU;
        return 3;
    }
    bits = lead & 0x07U;
    return (lead & 0xF8U) == 0xF0 ? 4 : 0;
}

bool isCharacter(std::uint32_t code, std::size_t length) {
    constexpr std::uint32_t FIRST[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code >= FIRST[length] && code <= 0x10FFFF && !surrogate;
}

} // namespace

bool isUtf8(const std::string& text) {
    for (std::size_t i = 0; i < text.size();) {
        std::uint32_t code = 0;
        const std::size_t length = leadLength(static_cast<unsigned char>(text[i]), code);
        if (length == 0 || i + length > text.size())
            return false;
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0U) != 0x80)
                return false;
            code = (code << 6U) | (next & 0x3FU);
        }
        if (!isCharacter(code, length))
            return false;
        i += length;
    }
    return true;
}

} // namespace client
