#include "trace_config.h"

#include "tracing.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace Trace {

namespace {

const char* const SUBSYSTEM = "TRACING";

enum Token { TOKEN_NAME, TOKEN_LEVEL, TOKEN_MASKS, TOKEN_SYSLOG, TOKEN_COUNT };

bool consistsOf(const std::string& text, const char* accepted) {
    return !text.empty() && text.find_first_not_of(accepted) == std::string::npos;
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

std::string joined(const MaskWords& masks) {
    std::ostringstream text;
    if (const auto words = masks.words()) {
        const char* separator = "";
        for (const std::uint32_t word : *words) {
            text << separator << word;
            separator = ",";
        }
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

/// Opening a pipe in the file's place would wait for a writer, and a device may never end. The
/// plain stat fails where a size or a date does not fit into 32 bits.
bool isFile(const std::string& path) {
    struct statx found {};
    return statx(AT_FDCWD, path.c_str(), 0, STATX_TYPE, &found) == 0 && S_ISREG(found.stx_mode);
}

} // namespace

MaskWords& MaskWords::operator=(const MaskWords& other) {
    if (this != &other) {
        std::atomic_store(&m_words, other.words());
    }
    return *this;
}

MaskWords& MaskWords::operator=(Words words) {
    std::shared_ptr<const Words> next;
    if (!words.empty()) {
        next = std::make_shared<const Words>(std::move(words));
    }
    std::atomic_store(&m_words, next);
    return *this;
}

TraceConfig::TraceConfig(const TraceConfig& other)
    : appName(other.appName),
      level(other.level.load()),
      masks(other.masks),
      toSyslog(other.toSyslog.load()) {}

TraceConfig& TraceConfig::operator=(const TraceConfig& other) {
    if (this != &other) {
        appName = other.appName;
        level = other.level.load();
        masks = other.masks;
        toSyslog = other.toSyslog.load();
    }
    return *this;
}

TraceConfig Log::parseEntry(const std::string& line) {
    std::string lower = line;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    // Adjacent separators are not merged, on purpose: a doubled blank makes an empty token.
    std::vector<std::string> tokens;
    boost::algorithm::split(tokens, lower, boost::is_any_of(" \t"));

    TraceConfig entry;
    if (tokens.size() < TOKEN_COUNT || tokens[TOKEN_NAME].empty() ||
        tokens[TOKEN_NAME] != s_configuration.appName) {
        return entry;
    }
    entry.appName = tokens[TOKEN_NAME];
    TRACE_MASKED(LEVEL_VERBOSE, TRACE_MASK_TRACING, SUBSYSTEM,
                 "found entry" << named("appName", entry.appName));

    const std::string level =
        consistsOf(tokens[TOKEN_LEVEL], "0123456789") ? tokens[TOKEN_LEVEL] : "0";
    entry.level = std::clamp(std::stoi(level), LEVEL_FATAL, LEVEL_VERBOSE);
    TRACE_MASKED(LEVEL_VERBOSE, TRACE_MASK_TRACING, SUBSYSTEM,
                 "set level" << named("level", entry.level));

    entry.masks = maskWords(tokens[TOKEN_MASKS]);
    TRACE_MASKED(LEVEL_VERBOSE, TRACE_MASK_TRACING, SUBSYSTEM,
                 "set mask" << named("masks", joined(entry.masks)));

    const std::string toSyslog =
        consistsOf(tokens[TOKEN_SYSLOG], "01") ? tokens[TOKEN_SYSLOG] : "1";
    entry.toSyslog = std::stoi(toSyslog) != 0;
    TRACE_MASKED(LEVEL_VERBOSE, TRACE_MASK_TRACING, SUBSYSTEM,
                 "set syslog" << named("toSyslog", entry.toSyslog));
    return entry;
}

bool Log::readConfig() {
    TRACE_MASKED(LEVEL_VERBOSE, TRACE_MASK_TRACING, SUBSYSTEM, "some changes");
    if (!isFile(s_configFilePath)) {
        return false;
    }
    std::ifstream file(s_configFilePath);
    std::string line;
    while (std::getline(file, line)) {
        try {
            const TraceConfig entry = parseEntry(line);
            if (!entry.appName.empty()) {
                s_configuration = entry;
                return true;
            }
        } catch (const std::exception& error) { // a typo must not end the splash
            std::string text = "no entry in ";
            text += s_configFilePath;
            text += ": " + quoted(line, s_configuration.toSyslog) + ": ";
            text += error.what();
            TRACE(LEVEL_ERROR, text);
        }
    }
    return false;
}

} // namespace Trace
