#include "script.h"

#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/uscript.h>

#include <cstdio>

namespace preview {
namespace {

UChar32 codeOf(const std::string& character) {
    return icu::UnicodeString::fromUTF8(character).char32At(0);
}

bool runsRightToLeft(UChar32 code) {
    const UCharDirection direction = u_charDirection(code);
    return u_isgraph(code) != 0 &&
           (direction == U_RIGHT_TO_LEFT || direction == U_RIGHT_TO_LEFT_ARABIC);
}

UScriptCode scriptOf(UChar32 code) {
    UErrorCode error = U_ZERO_ERROR;
    return uscript_getScript(code, &error);
}

/// Letters that join, and syllables that are put together from signs around their consonant.
bool changesWithNeighbours(UChar32 code) {
    const UScriptCode script = scriptOf(code);
    if (script == USCRIPT_COMMON || script == USCRIPT_INHERITED) {
        return false;
    }
    const int joining = u_getIntPropertyValue(code, UCHAR_JOINING_TYPE);
    const int syllabic = u_getIntPropertyValue(code, UCHAR_INDIC_SYLLABIC_CATEGORY);
    const int hangul = u_getIntPropertyValue(code, UCHAR_HANGUL_SYLLABLE_TYPE);
    return joining == U_JT_DUAL_JOINING || joining == U_JT_RIGHT_JOINING ||
           joining == U_JT_LEFT_JOINING ||
           (syllabic != U_INSC_OTHER && syllabic != U_INSC_NUMBER) ||
           hangul == U_HST_LEADING_JAMO || hangul == U_HST_VOWEL_JAMO ||
           hangul == U_HST_TRAILING_JAMO;
}

} // namespace

std::vector<std::string> charactersOf(const std::string& text) {
    std::vector<std::string> characters;
    for (const char byte : text) {
        if (characters.empty() || (static_cast<unsigned char>(byte) & 0xC0U) != 0x80) {
            characters.emplace_back();
        }
        characters.back() += byte;
    }
    return characters;
}

std::string withCode(const std::string& character) {
    const UChar32 code = codeOf(character);
    char name[16] = "";
    std::snprintf(name, sizeof name, "U+%04X", static_cast<unsigned>(code));
    const bool visible =
        u_isgraph(code) != 0 && !isCombining(character) && !shouldBeInvisible(character);
    return visible ? character + " (" + name + ")" : name;
}

bool shouldBeInvisible(const std::string& character) {
    return u_hasBinaryProperty(codeOf(character), UCHAR_DEFAULT_IGNORABLE_CODE_POINT) != 0;
}

bool isCombining(const std::string& character) {
    return (U_GET_GC_MASK(codeOf(character)) & U_GC_M_MASK) != 0;
}

std::string needsShaping(const std::string& text) {
    const icu::UnicodeString whole = icu::UnicodeString::fromUTF8(text);
    for (int32_t i = 0; i < whole.length(); i = whole.moveIndex32(i, 1)) {
        const UChar32 code = whole.char32At(i);
        const std::string script = uscript_getName(scriptOf(code));
        if (runsRightToLeft(code)) {
            return "is in " + script +
                   ", which runs from right to left; the page draws it from "
                   "left to right, letter by letter";
        }
        if (changesWithNeighbours(code)) {
            return "is in " + script +
                   ", whose letters change with their neighbours; the page "
                   "draws them one by one";
        }
    }
    return {};
}

} // namespace preview
