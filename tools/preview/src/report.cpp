#include "report.h"

#include "fonts.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iomanip>

namespace preview {
namespace {

using Json = nlohmann::ordered_json;

/// The title, without what would break a row of the table.
std::string inOneRow(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char character) { return character < ' '; }, ' ');
    return text;
}

std::string fontLine(const char* use, const char* family) {
    const std::string font = fontFor(family);
    std::string line = std::string(use) + ": " + font;
    if (font.compare(0, std::string(family).size(), family) != 0)
        line += " in place of " + std::string(family);
    return line;
}

Json jsonOf(const Finding& finding) {
    Json json = {{"kind", finding.kind}, {"line", nullptr}, {"what", finding.what}};
    if (finding.line >= 0)
        json["line"] = finding.line;
    if (finding.box)
        json["box"] = {finding.box->left, finding.box->top, finding.box->right,
                       finding.box->bottom};
    return json;
}

Json jsonOf(const CheckedPage& checked) {
    Json json = {{"row", checked.page.row},
                 {"language", checked.page.language},
                 {"title", checked.page.title},
                 {"lines", bodyLines(checked.page.lines)},
                 {"findings", Json::array()}};
    for (const Finding& finding : checked.findings)
        json["findings"].push_back(jsonOf(finding));
    return json;
}

} // namespace

std::size_t countFindings(const std::vector<CheckedPage>& pages) {
    std::size_t count = 0;
    for (const CheckedPage& page : pages)
        count += page.findings.size();
    return count;
}

void writeTable(std::ostream& out, const std::string& catalogue,
                const std::vector<CheckedPage>& pages) {
    out << catalogue << '\n'
        << fontLine("Latin", LATIN_FAMILY) << '\n'
        << fontLine("Chinese", CHINESE_FAMILY) << "\n\n";
    out << std::right << std::setw(4) << "row"
        << "  " << std::left << std::setw(9) << "language" << std::setw(9) << "finding"
        << "page\n";
    for (const CheckedPage& checked : pages) {
        const auto row = [&](const std::string& kind, const std::string& text) {
            out << std::right << std::setw(4) << checked.page.row << "  " << std::left
                << std::setw(9) << inOneRow(checked.page.language) << std::setw(9) << kind << text
                << '\n';
        };
        if (checked.findings.empty())
            row("-", inOneRow(checked.page.title));
        for (const Finding& finding : checked.findings)
            row(finding.kind, inOneRow(checked.page.title) + ": " + inOneRow(finding.what));
    }
    const std::size_t findings = countFindings(pages);
    out << '\n'
        << pages.size() << (pages.size() == 1 ? " page, " : " pages, ")
        << (findings == 0 ? "no" : std::to_string(findings))
        << (findings == 1 ? " finding\n" : " findings\n");
}

void writeJson(std::ostream& out, const std::string& catalogue,
               const std::vector<CheckedPage>& pages) {
    Json json = {
        {"catalogue", catalogue},
        {"fonts",
         {{"latin", {{"family", LATIN_FAMILY}, {"drawn_with", fontFor(LATIN_FAMILY)}}},
          {"chinese", {{"family", CHINESE_FAMILY}, {"drawn_with", fontFor(CHINESE_FAMILY)}}}}},
        {"finding_count", countFindings(pages)},
        {"pages", Json::array()}};
    for (const CheckedPage& page : pages)
        json["pages"].push_back(jsonOf(page));
    // A catalogue that is not UTF-8 is a finding, not a reason to write nothing.
    out << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

} // namespace preview
