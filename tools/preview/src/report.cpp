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

std::string counted(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

const char* nameOf(Severity severity) {
    return severity == Severity::ERROR ? "error" : "warning";
}

Json jsonOf(const Finding& finding) {
    Json json = {{"severity", nameOf(finding.severity)},
                 {"kind", finding.kind},
                 {"line", nullptr},
                 {"what", finding.what}};
    if (finding.line >= 0) {
        json["line"] = finding.line;
    }
    if (finding.box) {
        json["box"] = {finding.box->left, finding.box->top, finding.box->right,
                       finding.box->bottom};
    }
    return json;
}

Json jsonOf(const CheckedPage& checked) {
    Json json = {{"row", checked.page.row},     {"language", checked.page.language},
                 {"title", checked.page.title}, {"lines", checked.page.lines},
                 {"texts", Json::array()},      {"findings", Json::array()}};
    for (const MeasuredText& text : checked.texts) {
        json["texts"].push_back({{"text", text.text}, {"px_left", text.left}});
    }
    for (const Finding& finding : checked.findings) {
        json["findings"].push_back(jsonOf(finding));
    }
    return json;
}

void writeRow(std::ostream& out, const std::string& row, const std::string& language,
              const std::string& left, const std::string& text) {
    out << std::right << std::setw(4) << row << "  " << std::left << std::setw(9)
        << inOneRow(language) << std::right << std::setw(12) << left << "  " << inOneRow(text)
        << '\n';
}

void writePage(std::ostream& out, const CheckedPage& checked) {
    std::string row = std::to_string(checked.page.row);
    std::string language = checked.page.language;
    if (checked.texts.empty()) {
        writeRow(out, row, language, "", checked.page.title);
    }
    for (const MeasuredText& text : checked.texts) {
        writeRow(out, row, language, roomIn(text), text.text);
        row.clear();
        language.clear();
    }
    for (const Finding& finding : checked.findings) {
        writeRow(out, "", "", nameOf(finding.severity), finding.what);
    }
}

} // namespace

std::string fontLine(const char* use, const char* family) {
    const std::string font = fontFor(family);
    std::string line = std::string(use) + ": " + font;
    if (font.compare(0, std::string(family).size(), family) != 0) {
        line += " in place of " + std::string(family);
    }
    return line;
}

std::string roomIn(const MeasuredText& text) {
    return text.left < 0 ? std::to_string(-text.left) + " px over"
                         : std::to_string(text.left) + " px left";
}

std::string verdictOn(std::size_t errors, std::size_t warnings) {
    std::string verdict = errors > 0 ? counted(errors, "error") : "";
    if (warnings > 0) {
        verdict += (errors > 0 ? ", " : "") + counted(warnings, "warning");
    }
    return verdict.empty() ? "good" : verdict;
}

void writeTable(std::ostream& out, const std::string& catalogue,
                const std::vector<CheckedPage>& pages) {
    out << catalogue << '\n'
        << fontLine("Latin", LATIN_FAMILY) << '\n'
        << fontLine("Chinese", CHINESE_FAMILY) << "\n\n";
    writeRow(out, "row", "language", "in the line", "text");
    for (const CheckedPage& checked : pages) {
        writePage(out, checked);
    }
    out << '\n'
        << counted(pages.size(), "page") << ": "
        << verdictOn(countFindings(pages, Severity::ERROR), countFindings(pages, Severity::WARNING))
        << '\n';
}

void writeJson(std::ostream& out, const std::string& catalogue,
               const std::vector<CheckedPage>& pages) {
    Json json = {
        {"catalogue", catalogue},
        {"fonts",
         {{"latin", {{"family", LATIN_FAMILY}, {"drawn_with", fontFor(LATIN_FAMILY)}}},
          {"chinese", {{"family", CHINESE_FAMILY}, {"drawn_with", fontFor(CHINESE_FAMILY)}}}}},
        {"error_count", countFindings(pages, Severity::ERROR)},
        {"warning_count", countFindings(pages, Severity::WARNING)},
        {"pages", Json::array()}};
    for (const CheckedPage& page : pages) {
        json["pages"].push_back(jsonOf(page));
    }
    // A catalogue that is not UTF-8 is a finding, not a reason to write nothing.
    out << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

} // namespace preview
