#include "trace_entry.h"

#include "nearest.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <stdexcept>

namespace ctl {
namespace {

const char* const APPLICATION = "bootlume";
constexpr const char* NO_MASKS = "0";
constexpr std::size_t TOKENS = 4;

/// By level; the file cannot set the first.
constexpr std::array<const char*, 7> LEVELS = {"all",  "fatal", "error",  "warn",
                                               "info", "debug", "verbose"};

struct NamedMask {
    const char* name;
    const char* word;
};
constexpr std::array<NamedMask, 4> MASKS = {
    {{"dispatcher", "0x80002"}, {"tracing", "0x80004"}, {"all", "0xffffffff"}, {"none", NO_MASKS}}};

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    return text;
}

/// Adjacent separators make an empty piece between them, as the splash reads them.
std::vector<std::string> split(const std::string& text, const char* separators) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = text.find_first_of(separators, start);
        pieces.push_back(text.substr(start, end - start));
        if (end == std::string::npos) {
            return pieces;
        }
        start = end + 1;
    }
}

std::string parseMask(const std::string& text) {
    const std::string word = lowered(text);
    for (const NamedMask& mask : MASKS) {
        if (word == mask.name) {
            return mask.word;
        }
    }
    const std::string digits = word.substr(word.compare(0, 2, "0x") == 0 ? 2 : 0);
    if (digits.empty() || digits.size() > 8 ||
        digits.find_first_not_of("0123456789abcdef") != std::string::npos) {
        throw std::invalid_argument("'" + text +
                                    "' is no mask: give a hexadecimal word of at most eight "
                                    "digits, or DISPATCHER, TRACING, ALL or NONE");
    }
    return digits == "0" ? NO_MASKS : "0x" + digits;
}

bool isMaskToken(const std::string& token) {
    try {
        for (const std::string& word : split(token, ",")) {
            parseMask(word);
        }
        return true;
    } catch (const std::invalid_argument&) {
        return false;
    }
}

} // namespace

std::string parseLevel(const std::string& text) {
    const std::string name = lowered(text);
    for (std::size_t level = 0; level < LEVELS.size(); ++level) {
        std::string digit = std::to_string(level);
        if (name != LEVELS[level] && name != digit) {
            continue;
        }
        if (level == 0) {
            throw std::invalid_argument("the file cannot set level 0; the lowest is 1, FATAL");
        }
        return digit;
    }
    const std::string meant = nearest(text, {"FATAL", "ERROR", "WARN", "INFO", "DEBUG", "VERBOSE"});
    throw std::invalid_argument("'" + text + "' is no level: " +
                                (meant.empty()
                                     ? "give 1 to 6, or FATAL, ERROR, WARN, INFO, DEBUG or VERBOSE"
                                     : "did you mean '" + meant + "'?"));
}

std::string parseMasks(const std::vector<std::string>& texts) {
    std::string token;
    for (const std::string& text : texts) {
        for (const std::string& word : split(text, ",")) {
            const std::string mask = parseMask(word);
            token += (token.empty() ? "" : ",") + mask;
        }
    }
    return token;
}

bool isSplashEntry(const std::string& line) {
    const std::vector<std::string> tokens = split(lowered(line), " \t");
    return tokens.size() >= TOKENS && tokens[0] == APPLICATION;
}

std::string traceLine(const TraceWish& wish, const std::string& before) {
    std::string masks = NO_MASKS;
    std::string toSyslog = "0";
    if (!before.empty()) {
        const std::vector<std::string> tokens = split(before, " \t\r");
        if (isMaskToken(tokens[2])) {
            masks = tokens[2];
        }
        // The splash takes what it cannot read as a switch for "on".
        const bool off =
            !tokens[3].empty() && tokens[3].find_first_not_of('0') == std::string::npos;
        toSyslog = off ? "0" : "1";
    }
    if (wish.masks) {
        masks = *wish.masks;
    }
    if (wish.toSyslog) {
        toSyslog = *wish.toSyslog ? "1" : "0";
    }
    return std::string(APPLICATION) + " " + wish.level + " " + masks + " " + toSyslog;
}

} // namespace ctl
