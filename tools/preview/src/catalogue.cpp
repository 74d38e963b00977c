#include "catalogue.h"

#include "catalogue_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace preview {
namespace {

constexpr std::size_t FIELDS = 3;
const std::string BYTE_ORDER_MARK = "\xEF\xBB\xBF";

std::vector<std::string> fieldsOf(const std::string& line) {
    std::vector<std::string> fields;
    for (std::size_t start = 0;;) {
        const std::size_t end = line.find('\t', start);
        fields.push_back(line.substr(start, end - start));
        if (end == std::string::npos) {
            return fields;
        }
        start = end + 1;
    }
}

Page pageOf(int row, const std::string& line) {
    const std::vector<std::string> fields = fieldsOf(line);
    if (fields.size() != FIELDS) {
        return {row,
                fields[0],
                fields.size() > 1 ? fields[1] : "",
                "",
                "a row has three fields separated by tabs (language, title, lines); this one has " +
                    std::to_string(fields.size()),
                ""};
    }
    return {row, fields[0], fields[1], fields[2], fields[0].empty() ? MISSING_LANGUAGE : "", ""};
}

/// Without the byte-order mark that some editors put in front.
std::string readWhole(const std::string& path) {
    if (std::filesystem::is_directory(path)) {
        throw std::runtime_error(path + ": is a folder");
    }
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    if (file.is_open() && file.peek() != std::ifstream::traits_type::eof()) {
        bytes << file.rdbuf();
    }
    if (!file.is_open() || file.bad() || bytes.bad()) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    const std::string text = bytes.str();
    return text.compare(0, BYTE_ORDER_MARK.size(), BYTE_ORDER_MARK) == 0
               ? text.substr(BYTE_ORDER_MARK.size())
               : text;
}

std::vector<Page> readPages(const std::string& path) {
    const std::string bytes = readWhole(path);
    const std::string extension = std::filesystem::path(path).extension().string();
    if (extension == ".po") {
        return readPo(path);
    }
    return extension == ".csv" ? readCsv(path, bytes) : readTsv(bytes);
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

std::vector<Page> readTsv(const std::string& bytes) {
    std::istringstream text(bytes);
    std::vector<Page> pages;
    int row = 0;
    for (std::string line; std::getline(text, line);) {
        ++row;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (!line.empty() && line.front() != '#') {
            pages.push_back(pageOf(row, line));
        }
    }
    return pages;
}

std::vector<Page> readCatalogue(const std::string& path) {
    std::vector<Page> pages = readPages(path);
    if (pages.empty()) {
        throw std::runtime_error(path + ": holds no page");
    }
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
