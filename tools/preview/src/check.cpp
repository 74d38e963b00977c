#include "check.h"

#include "fonts.h"
#include "page_record.h"
#include "script.h"
#include "splash.h"
#include "text_command.h"

#include <algorithm>
#include <numeric>

namespace preview {
namespace {

const char* const REPLACEMENT = "\xEF\xBF\xBD"; // U+FFFD

std::string nameOf(int line) {
    return line == 0 ? "the title" : "line " + std::to_string(line);
}

std::string namesOf(const std::vector<std::string>& characters) {
    constexpr std::size_t MOST = 4;
    std::string text;
    for (std::size_t i = 0; i < characters.size(); ++i) {
        if (i == MOST) {
            return text + " and " + std::to_string(characters.size() - MOST) + " more";
        }
        text += (i == 0 ? "" : ", ") + withCode(characters[i]);
    }
    return text;
}

/// Collects what is found in one text.
class TextFindings {
public:
    TextFindings(int line, const MeasuredText& text, std::vector<Finding>& findings)
        : m_line(line), m_text(text), m_findings(findings) {}

    void addPlace() {
        const Box& ink = m_text.ink;
        if (ink.right > PAGE_WIDTH) {
            error("right", "ends at " + std::to_string(ink.right) + ", the page at " +
                               std::to_string(PAGE_WIDTH));
        } else if (m_text.left < 0) {
            add(Severity::WARNING, "divider",
                "ends " + std::to_string(-m_text.left) + " px behind the divider", ink);
        }
        if (m_text.touchesRing) {
            error("ring", "runs into the ring");
        }
        if (!ink.empty() && ink.bottom > PAGE_HEIGHT) {
            error("bottom", "reaches down to " + std::to_string(ink.bottom) + ", the page to " +
                                std::to_string(PAGE_HEIGHT));
        }
        addGap();
    }

    void addCharacters() {
        const std::string shaping = needsShaping(m_text.text);
        if (!shaping.empty()) {
            error("script", shaping);
        } else if (hasCombining()) {
            add(Severity::WARNING, "accent",
                "has accents apart from their letters: where they come to lie is up to the font; "
                "write each letter with its accent as one character (Unicode form NFC)",
                m_text.ink);
        }
        if (!m_text.missing.empty()) {
            error("glyph", "needs " + namesOf(m_text.missing) + ", which " + fontFor(m_text.font) +
                               " does not have");
        }
        if (!m_text.unhidden.empty()) {
            error("glyph", "shows " + namesOf(m_text.unhidden) + ", which should be invisible");
        }
        if (m_text.text.find(REPLACEMENT) != std::string::npos) {
            error("lost", "shows U+FFFD, which stands for a character that was lost");
        }
        if (m_text.text.find("\\n") != std::string::npos) {
            error("newline", "shows \\n as it stands: it begins a new line only between two lines");
        }
    }

private:
    /// Between the product's name and what stands behind it.
    void addGap() {
        constexpr int LEAST_GAP = 2;
        if (m_text.gap && *m_text.gap < 0) {
            add(Severity::ERROR, "overprint",
                "is drawn over itself: what stands behind the product's name begins " +
                    std::to_string(-*m_text.gap) + " px before that ends",
                m_text.joint);
        } else if (m_text.gap && *m_text.gap < LEAST_GAP) {
            add(Severity::WARNING, "overprint",
                "has no gap between the product's name and what stands behind it", m_text.joint);
        }
    }

    bool hasCombining() const {
        const std::vector<std::string> characters = charactersOf(m_text.text);
        return std::any_of(characters.begin(), characters.end(), isCombining);
    }

    void error(const std::string& kind, const std::string& what) {
        add(Severity::ERROR, kind, what, m_text.ink);
    }

    void add(Severity severity, const std::string& kind, const std::string& what, const Box& box) {
        m_findings.push_back({severity, kind, m_line, nameOf(m_line) + " " + what, box});
    }

    int m_line;
    const MeasuredText& m_text;
    std::vector<Finding>& m_findings;
};

void draw(Splash& splash, CheckedPage& checked) {
    const bool chinese = isChinese(checked.page);
    if (splash.isChinese() != chinese) {
        splash.setChinese(chinese);
    }
    splash.start(Texts{checked.page.title, checked.page.lines});
    checked.picture = splash.frame(0);
    checked.texts = measurePage(readPageRecord(splash.recordPath()));
    int line = 0;
    for (const MeasuredText& text : checked.texts) {
        TextFindings findings(line++, text, checked.findings);
        findings.addPlace();
        findings.addCharacters();
    }
}

bool has(const CheckedPage& checked, const std::string& kind) {
    return std::any_of(checked.findings.begin(), checked.findings.end(),
                       [&](const Finding& finding) { return finding.kind == kind; });
}

CheckedPage checkPage(Splash& splash, const Page& page) {
    CheckedPage checked{page, {}, {}, {}};
    if (!page.broken.empty()) {
        checked.findings.push_back({Severity::ERROR, "row", -1, page.broken, {}});
        return checked;
    }
    if (!page.doubt.empty()) {
        checked.findings.push_back({Severity::WARNING, "row", -1, page.doubt, {}});
    }
    const std::string noStart = startRefusal(page);
    if (noStart.empty()) {
        draw(splash, checked);
    } else {
        checked.findings.push_back({Severity::ERROR, "command", -1, noStart, {}});
    }
    const std::string refusal = client::refusal(page.title, page.lines);
    if (!refusal.empty() && !has(checked, "newline")) { // the client refuses those as well
        checked.findings.insert(checked.findings.begin(),
                                {Severity::ERROR, "command", -1, refusal, {}});
    }
    return checked;
}

} // namespace

std::string startRefusal(const Page& page) {
    constexpr std::size_t MOST = 131071; // what the kernel takes as one argument
    if (page.title.compare(0, 2, "-c") == 0) {
        return "a title that begins with -c is an option on the command line";
    }
    if (std::max(page.title.size(), page.lines.size()) > MOST) {
        return "a text of more than " + std::to_string(MOST) + " bytes fits on no command line";
    }
    return {};
}

std::vector<CheckedPage> check(Splash& splash, const std::vector<Page>& pages) {
    splash.recordDrawing();
    std::vector<CheckedPage> checked;
    for (const Page& page : pages) {
        checked.push_back(checkPage(splash, page));
    }
    return checked;
}

std::size_t countFindings(const CheckedPage& page, Severity severity) {
    return static_cast<std::size_t>(
        std::count_if(page.findings.begin(), page.findings.end(),
                      [&](const Finding& finding) { return finding.severity == severity; }));
}

std::size_t countFindings(const std::vector<CheckedPage>& pages, Severity severity) {
    return std::accumulate(pages.begin(), pages.end(), std::size_t{0},
                           [&](std::size_t sum, const CheckedPage& page) {
                               return sum + countFindings(page, severity);
                           });
}

} // namespace preview
