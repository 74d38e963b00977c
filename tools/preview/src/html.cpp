#include "html.h"

#include "fonts.h"
#include "report.h"

#include <glib.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <set>
#include <sstream>

namespace preview {
namespace {

const char* const HEAD = R"html(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Pages of the boot splash</title>
<style>
body { font-family: system-ui, sans-serif; margin: 1.5rem; background: #ecedf0; color: #33383f; }
header { display: flex; flex-wrap: wrap; gap: 0.5rem 2rem; align-items: baseline; }
h1 { font-size: 1.2rem; margin: 0; overflow-wrap: anywhere; }
header p { margin: 0; }
main { display: grid; grid-template-columns: repeat(auto-fill, minmax(15rem, 1fr)); gap: 1.5rem;
       margin-top: 1.5rem; }
article { display: flex; flex-direction: column; gap: 0.5rem; min-width: 0; }
article[hidden] { display: none; }
h2 { font-size: 0.9rem; margin: 0; display: flex; justify-content: space-between; }
.page { position: relative; }
.page img { display: block; width: 100%; height: auto; outline: 1px solid #c7c9cf; }
.mark { position: absolute; outline: 2px solid; }
.good { color: #19703a; }
.error { color: #b3151b; }
.warning { color: #8f5200; }
.mark.error { background: #cc1a1f24; }
.mark.warning { background: #b86b0024; }
table { border-collapse: collapse; font-size: 0.85rem; width: 100%; }
td { padding: 0.1rem 0; vertical-align: top; overflow-wrap: anywhere; }
td + td { text-align: right; white-space: nowrap; padding-left: 1rem; color: #5d636d; }
ul { margin: 0; padding-left: 1.1rem; font-size: 0.85rem; }
</style>
</head>
<body>
)html";

const char* const TAIL = R"html(</main>
<script>
const choice = document.getElementById("language");
const findings = document.getElementById("findings");
function choose() {
  for (const page of document.querySelectorAll("article")) {
    page.hidden = (choice.value !== "" && page.dataset.language !== choice.value) ||
                  (findings.checked && page.dataset.good !== undefined);
  }
}
choice.addEventListener("change", choose);
findings.addEventListener("change", choose);
choose();
</script>
</body>
</html>
)html";

struct FreeText {
    void operator()(char* text) const { g_free(text); }
};

/// What is not UTF-8 becomes U+FFFD.
std::string escaped(const std::string& text) {
    const std::unique_ptr<char, FreeText> valid(
        g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    const std::unique_ptr<char, FreeText> escaped(g_markup_escape_text(valid.get(), -1));
    return escaped.get();
}

std::string base64(const std::string& bytes) {
    const std::unique_ptr<char, FreeText> text(
        g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size()));
    return text.get();
}

const char* classOf(Severity severity) {
    return severity == Severity::ERROR ? "error" : "warning";
}

std::string percent(int part, int whole) {
    std::ostringstream text;
    text << 100.0 * part / whole << '%';
    return text.str();
}

/// What of the box is on the page, and a little around it.
void writeMark(std::ostream& out, const Finding& finding) {
    constexpr int PAD = 3;
    constexpr int LEAST = 6;
    const Box& box = *finding.box;
    const int left = std::clamp(box.left - PAD, 0, PAGE_WIDTH - LEAST);
    const int top = std::clamp(box.top - PAD, 0, PAGE_HEIGHT - LEAST);
    const int right = std::clamp(box.right + PAD, left + LEAST, PAGE_WIDTH);
    const int bottom = std::clamp(box.bottom + PAD, top + LEAST, PAGE_HEIGHT);
    out << "<div class=\"mark " << classOf(finding.severity)
        << "\" style=\"left: " << percent(left, PAGE_WIDTH)
        << "; top: " << percent(top, PAGE_HEIGHT)
        << "; width: " << percent(right - left, PAGE_WIDTH)
        << "; height: " << percent(bottom - top, PAGE_HEIGHT) << "\" title=\""
        << escaped(finding.what) << "\"></div>\n";
}

void writePicture(std::ostream& out, const CheckedPage& checked) {
    if (!checked.picture) {
        out << "<p class=\"error\">This page cannot be drawn.</p>\n";
        return;
    }
    out << "<div class=\"page\">\n<img width=\"" << PAGE_WIDTH << "\" height=\"" << PAGE_HEIGHT
        << "\" alt=\"The page as it is drawn\" src=\"data:image/png;base64,"
        << base64(toPng(toSurface(*checked.picture).get())) << "\">\n";
    for (const Finding& finding : checked.findings) {
        if (finding.box) {
            writeMark(out, finding);
        }
    }
    out << "</div>\n";
}

void writeTexts(std::ostream& out, const CheckedPage& checked) {
    out << "<table lang=\"" << escaped(checked.page.language) << "\">\n";
    if (checked.texts.empty()) {
        out << "<tr><td>" << escaped(checked.page.title) << "</td></tr>\n";
    }
    for (const MeasuredText& text : checked.texts) {
        out << "<tr><td>" << escaped(text.text) << "</td><td>" << roomIn(text) << "</td></tr>\n";
    }
    out << "</table>\n";
}

void writeFindings(std::ostream& out, const CheckedPage& checked) {
    if (checked.findings.empty()) {
        return;
    }
    out << "<ul>\n";
    for (const Finding& finding : checked.findings) {
        out << "<li class=\"" << classOf(finding.severity) << "\">" << escaped(finding.what)
            << "</li>\n";
    }
    out << "</ul>\n";
}

void writePage(std::ostream& out, const CheckedPage& checked) {
    const std::size_t errors = countFindings(checked, Severity::ERROR);
    const std::size_t warnings = countFindings(checked, Severity::WARNING);
    const char* const verdict = errors > 0 ? "error" : warnings > 0 ? "warning" : "good";
    const std::string language = escaped(checked.page.language);
    out << "<article data-language=\"" << language << '"'
        << (checked.findings.empty() ? " data-good" : "") << ">\n<h2><span>" << language << ", row "
        << checked.page.row << "</span><span class=\"" << verdict << "\">"
        << verdictOn(errors, warnings) << "</span></h2>\n";
    writePicture(out, checked);
    writeTexts(out, checked);
    writeFindings(out, checked);
    out << "</article>\n";
}

void writeHeader(std::ostream& out, const std::string& catalogue,
                 const std::vector<CheckedPage>& pages) {
    std::set<std::string> languages;
    for (const CheckedPage& checked : pages) {
        languages.insert(escaped(checked.page.language));
    }
    out << "<header>\n<h1>" << escaped(catalogue) << "</h1>\n<p>" << pages.size()
        << (pages.size() == 1 ? " page: " : " pages: ")
        << verdictOn(countFindings(pages, Severity::ERROR), countFindings(pages, Severity::WARNING))
        << "</p>\n<p>" << escaped(fontLine("Latin", LATIN_FAMILY)) << "<br>"
        << escaped(fontLine("Chinese", CHINESE_FAMILY))
        << "</p>\n<label>Language <select id=\"language\"><option value=\"\">all</option>";
    for (const std::string& language : languages) {
        out << "<option>" << language << "</option>";
    }
    out << "</select></label>\n<label><input type=\"checkbox\" id=\"findings\"> findings "
           "only</label>\n</header>\n<main>\n";
}

} // namespace

std::string htmlOf(const std::string& catalogue, const std::vector<CheckedPage>& pages) {
    std::ostringstream out;
    out << HEAD;
    writeHeader(out, catalogue, pages);
    for (const CheckedPage& checked : pages) {
        writePage(out, checked);
    }
    out << TAIL;
    return out.str();
}

} // namespace preview
