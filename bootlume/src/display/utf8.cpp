#include "display/utf8.h"

#include <cstddef>
#include <cstdint>

namespace paint {

namespace {

const char* const REPLACEMENT = "\xEF\xBF\xBD"; // U+FFFD

using Position = std::string::size_type;

/// How a sequence begins; length 0: not a beginning.
struct Lead {
    unsigned length;
    std::uint32_t bits;   ///< what the first byte gives to the character
    std::uint32_t lowest; ///< the lowest character that needs this length
};

Lead leadOf(unsigned char byte) {
    if (byte < 0x80) {
        return {1, byte, 0};
    }
    if (byte >= 0xC2 && byte <= 0xDF) {
        return {2, byte & 0x1Fu, 0x80};
    }
    if (byte >= 0xE0 && byte <= 0xEF) {
        return {3, byte & 0x0Fu, 0x800};
    }
    if (byte >= 0xF0 && byte <= 0xF4) {
        return {4, byte & 0x07u, 0x10000};
    }
    return {0, 0, 0};
}

bool isDrawable(std::uint32_t character) {
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    const bool noncharacter =
        (character >= 0xFDD0 && character <= 0xFDEF) || (character & 0xFFFE) == 0xFFFE;
    return character <= 0x10FFFF && !surrogate && !noncharacter;
}

struct Sequence {
    Position length; ///< bytes to go on by; at least 1
    bool sound;
};

Sequence sequenceAt(const std::string& text, Position at) {
    const Lead lead = leadOf(static_cast<unsigned char>(text[at]));
    if (lead.length == 0) {
        return {1, false};
    }
    std::uint32_t character = lead.bits;
    Position length = 1;
    for (; length < lead.length && at + length < text.size(); ++length) {
        const auto byte = static_cast<unsigned char>(text[at + length]);
        if ((byte & 0xC0) != 0x80) {
            break;
        }
        character = (character << 6) | (byte & 0x3Fu);
    }
    const bool complete = length == lead.length;
    return {length, complete && character >= lead.lowest && isDrawable(character)};
}

} // namespace

const std::string& drawableText(const std::string& text, std::string& repaired) {
    Position at = 0;
    Position soundFrom = 0;
    bool broken = false;
    while (at < text.size()) {
        const Sequence sequence = sequenceAt(text, at);
        if (!sequence.sound) {
            if (!broken) {
                repaired.clear();
                broken = true;
            }
            repaired.append(text, soundFrom, at - soundFrom);
            repaired.append(REPLACEMENT);
            soundFrom = at + sequence.length;
        }
        at += sequence.length;
    }
    if (!broken) {
        return text;
    }
    repaired.append(text, soundFrom, std::string::npos);
    return repaired;
}

} // namespace paint
