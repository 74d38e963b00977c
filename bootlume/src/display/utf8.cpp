#include "display/utf8.h"

#include <cstddef>
#include <cstdint>

namespace paint {

namespace {

const char* const REPLACEMENT = "\xEF\xBF\xBD"; // U+FFFD

/// By number of bytes: the lowest character that needs so many.
constexpr std::uint32_t LOWEST[] = {0, 0, 0x80, 0x800, 0x10000};

/// How many bytes the sequence has that begins with this one; 0 if none does.
std::size_t claimedLength(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return 0;
    }
    return lead < 0xE0 ? 2 : (lead < 0xF0 ? 3 : 4);
}

bool isDrawable(std::uint32_t character) {
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    const bool noncharacter =
        (character >= 0xFDD0 && character <= 0xFDEF) || (character & 0xFFFE) == 0xFFFE;
    return character <= 0x10FFFF && !surrogate && !noncharacter;
}

struct Sequence {
    std::size_t length; ///< in bytes, at least 1
    bool sound;
};

Sequence sequenceAt(const std::string& text, std::size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    const std::size_t claimed = claimedLength(lead);
    std::uint32_t character = claimed == 1 ? lead : lead & (0x7Fu >> claimed);
    std::size_t length = 1;
    for (; length < claimed && at + length < text.size(); ++length) {
        const auto byte = static_cast<unsigned char>(text[at + length]);
        if ((byte & 0xC0) != 0x80) {
            break;
        }
        character = (character << 6) | (byte & 0x3Fu);
    }
    return {length, length == claimed && character >= LOWEST[claimed] && isDrawable(character)};
}

} // namespace

std::string drawableText(const std::string& text) {
    std::string drawable;
    for (std::size_t at = 0; at < text.size();) {
        const Sequence sequence = sequenceAt(text, at);
        drawable += sequence.sound ? text.substr(at, sequence.length) : REPLACEMENT;
        at += sequence.length;
    }
    return drawable;
}

} // namespace paint
