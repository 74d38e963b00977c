#include "check.h"

#include "fonts.h"
#include "picture.h"
#include "text_command.h"
#include "utf8_check.h"

#include <cstdint>
#include <cstdio>

namespace preview {
namespace {

std::string nameOf(int line) {
    return line == 0 ? "the title" : "line " + std::to_string(line);
}

/// The character of UTF-8 text that is `character`, with its code: 起 (U+8D77).
std::string withCode(const std::string& character) {
    std::uint32_t code = static_cast<unsigned char>(character[0]);
    if (character.size() > 1) {
        code &= 0x7FU >> character.size();
        for (std::size_t i = 1; i < character.size(); ++i)
            code = (code << 6U) | (static_cast<unsigned char>(character[i]) & 0x3FU);
    }
    char text[16] = "";
    std::snprintf(text, sizeof text, " (U+%04X)", code);
    return character + text;
}

std::string namesOf(const std::vector<std::string>& characters) {
    constexpr std::size_t MOST = 4;
    std::string text;
    for (std::size_t i = 0; i < characters.size(); ++i) {
        if (i == MOST)
            return text + " and " + std::to_string(characters.size() - MOST) + " more";
        text += (i == 0 ? "" : ", ") + withCode(characters[i]);
    }
    return text;
}

void addPlaceFindings(int line, const MeasuredText& text, std::vector<Finding>& findings) {
    const Box& ink = text.ink;
    if (ink.right > PAGE_WIDTH)
        findings.push_back({"right", line,
                            nameOf(line) + " ends at " + std::to_string(ink.right) +
                                ", the page at " + std::to_string(PAGE_WIDTH),
                            ink});
    if (text.touchesRing)
        findings.push_back({"ring", line, nameOf(line) + " runs into the ring", ink});
    if (!ink.empty() && ink.bottom > PAGE_HEIGHT)
        findings.push_back({"bottom", line,
                            nameOf(line) + " reaches down to " + std::to_string(ink.bottom) +
                                ", the page to " + std::to_string(PAGE_HEIGHT),
                            ink});
    if (!text.missing.empty())
        findings.push_back({"glyph", line,
                            nameOf(line) + " needs " + namesOf(text.missing) + ", which " +
                                fontFor(text.font) + " does not have",
                            ink});
}

/// Why the program cannot be started with these texts; empty where it can.
std::string startRefusal(const Page& page) {
    if (page.title.compare(0, 2, "-c") == 0)
        return "a title that begins with -c is an option on the command line";
    return {};
}

CheckedPage check(const Page& page) {
    CheckedPage checked{page, {}, false};
    if (!page.broken.empty()) {
        checked.findings.push_back({"row", -1, page.broken, {}});
        return checked;
    }
    const std::string refusal = client::refusal(page.title, page.lines);
    if (!refusal.empty())
        checked.findings.push_back({"command", -1, refusal, {}});
    const std::string noStart = startRefusal(page);
    if (!noStart.empty())
        checked.findings.push_back({"command", 0, noStart, {}});
    checked.drawable = noStart.empty();
    if (!client::isUtf8(page.title) || !client::isUtf8(page.lines))
        return checked;
    int line = 0;
    for (const MeasuredText& text : measurePage(page.title, bodyLines(page.lines), isChinese(page)))
        addPlaceFindings(line++, text, checked.findings);
    return checked;
}

} // namespace

std::vector<CheckedPage> check(const std::vector<Page>& pages) {
    std::vector<CheckedPage> checked;
    for (const Page& page : pages)
        checked.push_back(check(page));
    return checked;
}

} // namespace preview
