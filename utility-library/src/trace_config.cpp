#include "trace_config.h"

#include "settings_file.h"
#include "tracing.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <algorithm>
#include <cctype>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace Trace {

namespace {

enum Token { TOKEN_NAME, TOKEN_LEVEL, TOKEN_MASKS, TOKEN_SYSLOG, TOKEN_COUNT };

std::vector<std::string> tokensOf(std::string line) {
    std::transform(line.begin(), line.end(), line.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    // Adjacent separators are not merged, on purpose: a doubled blank makes an empty token.
    std::vector<std::string> tokens;
    boost::algorithm::split(tokens, line, boost::is_any_of(" \t"));
    return tokens;
}

/// The number of the text if it consists of these characters alone, or that of the other text.
int numberOf(const std::string& text, const char* accepted, const char* other) {
    const bool isAccepted = !text.empty() && text.find_first_not_of(accepted) == std::string::npos;
    return std::stoi(isAccepted ? text : other);
}

/// A mask word from hexadecimal digits, with the same range on every word size. The exceptions are
/// the conversion's own.
std::uint32_t maskWord(const std::string& text) {
    std::size_t used = 0;
    const unsigned long value = std::stoul(text, &used, 16);
    const bool negative = text.find('-') < used; // behind the number it is no sign
    const unsigned long magnitude = negative ? 0UL - value : value;
    if (magnitude > std::numeric_limits<std::uint32_t>::max()) {
        throw std::out_of_range("stoul");
    }
    return static_cast<std::uint32_t>(value);
}

MaskWords::Words maskWords(const std::string& token) {
    std::vector<std::string> texts;
    boost::algorithm::split(texts, token, boost::is_any_of(","), boost::token_compress_on);
    MaskWords::Words words;
    for (const std::string& text : texts) {
        if (!text.empty()) {
            words.push_back(maskWord(text));
        }
    }
    return words;
}

std::string joined(const MaskWords::Words& words) {
    std::ostringstream text;
    const char* separator = "";
    for (const std::uint32_t word : words) {
        text << separator << word;
        separator = ",";
    }
    return text.str();
}

/// A text of the file for a line of the trace. The system log reads its lines as formats: there, a
/// percent sign is doubled, so that no typo is taken for a conversion.
std::string quoted(const std::string& text, bool toSyslog) {
    std::string result;
    for (const char character : text) {
        result.append(toSyslog && character == '%' ? 2 : 1, character);
    }
    return result;
}

} // namespace

TraceConfig& TraceConfig::operator=(const TraceConfig& other) {
    appName = other.appName;
    level = other.level.load();
    masks.set(*other.masks.get());
    toSyslog = other.toSyslog.load();
    return *this;
}

TraceConfig TraceConfig::parse(const std::string& line, const std::string& appName) {
    const std::vector<std::string> tokens = tokensOf(line);
    TraceConfig entry;
    if (tokens.size() < TOKEN_COUNT || tokens[TOKEN_NAME].empty() ||
        tokens[TOKEN_NAME] != appName) {
        return entry;
    }
    entry.appName = tokens[TOKEN_NAME];
    TRACE_TRACING("found entry" << named("appName", entry.appName));
    entry.level =
        std::clamp(numberOf(tokens[TOKEN_LEVEL], "0123456789", "0"), LEVEL_FATAL, LEVEL_VERBOSE);
    TRACE_TRACING("set level" << named("level", entry.level));
    entry.masks.set(maskWords(tokens[TOKEN_MASKS]));
    TRACE_TRACING("set mask" << named("masks", joined(*entry.masks.get())));
    entry.toSyslog = numberOf(tokens[TOKEN_SYSLOG], "01", "1") != 0;
    TRACE_TRACING("set syslog" << named("toSyslog", entry.toSyslog));
    return entry;
}

bool TraceConfig::readFrom(const std::string& path) {
    TRACE_TRACING("some changes");
    const brem::SettingsFile file(path.c_str());
    std::string line;
    char piece[4096];
    std::int64_t place = 0;
    while (const std::size_t size = file.read(piece, sizeof piece, place)) {
        place += static_cast<std::int64_t>(size);
        for (const char character : std::string_view(piece, size)) {
            if (character != '\n') {
                line += character;
                continue;
            }
            if (apply(line, path)) {
                return true;
            }
            line.clear();
        }
    }
    return apply(line, path); // the last line may have no end
}

/// Takes over the entry for this application that a line of the file holds; false if it holds none.
bool TraceConfig::apply(const std::string& line, const std::string& path) {
    try {
        const TraceConfig entry = parse(line, appName);
        if (entry.appName.empty()) {
            return false;
        }
        *this = entry;
        return true;
    } catch (const std::exception& error) { // a typo must not end the splash
        const std::string text =
            "no entry in " + path + ": " + quoted(line, toSyslog) + ": " + error.what();
        TRACE(LEVEL_ERROR, text);
        return false;
    }
}

} // namespace Trace
