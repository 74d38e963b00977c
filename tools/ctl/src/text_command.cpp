#include "text_command.h"

#include <bootlume-client.h>

namespace client {
namespace {

/// The header's texts end at a zero byte.
bool hasZero(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

} // namespace

std::string refusal(const std::string& title, const std::string& lines) {
    if (hasZero(title) || hasZero(lines)) {
        return bootlume_reason(BOOTLUME_CONTROL_CHARACTER);
    }
    const bootlume_result result = bootlume_check_text(title.c_str(), lines.c_str());
    return result == BOOTLUME_SENT ? "" : bootlume_reason(result);
}

std::string refusal(const std::string& title, const std::vector<std::string>& lines) {
    return refusal(title, joined(lines));
}

std::string textCommand(const std::string& title, const std::string& lines) {
    return title + ";" + lines;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        if (&line != &lines.front()) {
            text += '\n';
        }
        text += line;
    }
    return text;
}

} // namespace client
