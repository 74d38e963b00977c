#include "catalogue.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace preview {
namespace {

constexpr std::size_t FIELDS = 3;

std::vector<std::string> fieldsOf(const std::string& line) {
    std::vector<std::string> fields;
    for (std::size_t start = 0;;) {
        const std::size_t end = line.find('\t', start);
        fields.push_back(line.substr(start, end - start));
        if (end == std::string::npos)
            return fields;
        start = end + 1;
    }
}

Page pageOf(int row, const std::string& line) {
    const std::vector<std::string> fields = fieldsOf(line);
    if (fields.size() != FIELDS)
        return {row, fields[0], fields.size() > 1 ? fields[1] : "", "",
                "a row has three fields separated by tabs (language, title, lines); this one has " +
                    std::to_string(fields.size())};
    if (fields[0].empty())
        return {row, "", fields[1], fields[2], "the language is missing"};
    return {row, fields[0], fields[1], fields[2], ""};
}

/// A delimiter at the end makes no piece.
std::vector<std::string> split(const std::string& text, const std::string& delimiter) {
    std::vector<std::string> pieces;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(delimiter, start), text.size());
        pieces.push_back(text.substr(start, end - start));
        start = end + delimiter.size();
    }
    return pieces;
}

} // namespace

std::vector<Page> readCatalogue(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    std::vector<Page> pages;
    int row = 0;
    for (std::string line; std::getline(file, line);) {
        ++row;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty() && line.front() != '#')
            pages.push_back(pageOf(row, line));
    }
    if (file.bad())
        throw std::runtime_error(path + ": cannot be read");
    return pages;
}

std::vector<std::string> bodyLines(const std::string& lines) {
    const std::vector<std::string> byNewline = split(lines, "\n");
    const std::vector<std::string> byEscape = split(lines, "\\n");
    return byEscape.size() > byNewline.size() ? byEscape : byNewline;
}

bool isChinese(const Page& page) {
    return page.language.compare(0, 2, "zh") == 0;
}

} // namespace preview
