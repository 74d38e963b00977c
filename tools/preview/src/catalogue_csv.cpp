#include "catalogue_file.h"

#include <csv.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <memory>
#include <stdexcept>

namespace preview {
namespace {

using Row = std::vector<std::string>;

struct FreeParser {
    void operator()(csv_parser* parser) const { csv_free(parser); }
};

void addField(void* field, std::size_t size, void* rows) {
    static_cast<std::vector<Row>*>(rows)->back().emplace_back(static_cast<const char*>(field),
                                                              size);
}

void addRow(int /*end*/, void* rows) {
    static_cast<std::vector<Row>*>(rows)->emplace_back();
}

int noSpace(unsigned char /*character*/) {
    return 0; // blanks belong to the texts
}

/// Spreadsheets separate by commas, semicolons or tabs: what stands behind the first name of the
/// header.
char delimiterOf(const std::string& bytes) {
    const auto found = std::find_if(bytes.begin(), bytes.end(), [](unsigned char character) {
        return character != '"' && std::isalnum(character) == 0;
    });
    return found == bytes.end() || *found == '\n' || *found == '\r' ? ',' : *found;
}

/// The last row is empty.
std::vector<Row> rowsOf(const std::string& path, const std::string& bytes) {
    csv_parser parser{};
    if (csv_init(&parser, CSV_STRICT | CSV_STRICT_FINI) != 0) {
        throw std::runtime_error("no memory for a catalogue");
    }
    const std::unique_ptr<csv_parser, FreeParser> owner(&parser);
    csv_set_delim(&parser, static_cast<unsigned char>(delimiterOf(bytes)));
    csv_set_space_func(&parser, noSpace);
    std::vector<Row> rows(1);
    const std::size_t parsed =
        csv_parse(&parser, bytes.data(), bytes.size(), addField, addRow, &rows);
    if (parsed != bytes.size() || csv_fini(&parser, addField, addRow, &rows) != 0) {
        throw std::runtime_error(path + ", row " + std::to_string(rows.size()) + ": " +
                                 csv_strerror(csv_error(&parser)));
    }
    return rows;
}

/// Which column of the header has the name, in letters of any case.
std::size_t columnOf(const std::string& path, const Row& header, const std::string& name) {
    for (std::size_t i = 0; i < header.size(); ++i) {
        const bool same = std::equal(
            header[i].begin(), header[i].end(), name.begin(), name.end(),
            [](unsigned char one, unsigned char other) { return std::tolower(one) == other; });
        if (same) {
            return i;
        }
    }
    throw std::runtime_error(path + ": the first row, the header, has no column \"" + name + "\"");
}

} // namespace

std::vector<Page> readCsv(const std::string& path, const std::string& bytes) {
    const std::vector<Row> rows = rowsOf(path, bytes);
    const std::array<std::size_t, 3> columns = {columnOf(path, rows.front(), "language"),
                                                columnOf(path, rows.front(), "title"),
                                                columnOf(path, rows.front(), "lines")};
    std::vector<Page> pages;
    for (std::size_t i = 1; i + 1 < rows.size(); ++i) {
        const auto field = [&](std::size_t column) {
            return columns[column] < rows[i].size() ? rows[i][columns[column]] : std::string();
        };
        Page page{static_cast<int>(i) + 1, field(0), field(1), field(2), "", ""};
        if (rows[i].size() < rows.front().size()) {
            page.broken = "the row has " + std::to_string(rows[i].size()) + " fields, the header " +
                          std::to_string(rows.front().size());
        } else if (page.language.empty()) {
            page.broken = MISSING_LANGUAGE;
        }
        pages.push_back(page);
    }
    return pages;
}

} // namespace preview
