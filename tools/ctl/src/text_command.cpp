#include "text_command.h"

#include "utf8_check.h"

#include <algorithm>

namespace client {
namespace {

const char* const ESCAPE = "\\n";

bool has(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

bool hasControl(const std::string& text, bool newlineAllowed) {
    return std::any_of(text.begin(), text.end(), [&](unsigned char character) {
        return character == 0x7F || (character < 0x20 && !(newlineAllowed && character == '\n'));
    });
}

} // namespace

std::string refusal(const std::string& title, const std::string& lines) {
    if (has(title, ";"))
        return "the title holds a semicolon, which separates the title from the lines";
    if (has(lines, ";"))
        return "a line holds a semicolon, which the splash would take for the end of the lines";
    if (!isUtf8(title) || !isUtf8(lines))
        return "the text is not UTF-8";
    if (has(title, "\n"))
        return "the title holds a newline; it is one line";
    if (hasControl(title, false) || hasControl(lines, true))
        return "the text holds a control character, which no font can draw";
    if (lines.empty())
        return "there is no line; for a page with a title alone, send one line with one blank";
    if (has(lines, "\n") && has(lines, ESCAPE))
        return "a line holds a backslash and an n, which the splash cannot tell from the end of a "
               "line; that form is for a single text with all lines";
    return {};
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
        if (&line != &lines.front())
            text += '\n';
        text += line;
    }
    return text;
}

} // namespace client
