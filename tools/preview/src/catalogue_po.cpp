#include "catalogue_file.h"

#include <gettext-po.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <type_traits>

namespace preview {
namespace {

struct Free {
    void operator()(po_file_t file) const { po_file_free(file); }
    void operator()(po_message_iterator_t iterator) const { po_message_iterator_free(iterator); }
    void operator()(char* text) const { std::free(text); }
};
using File = std::unique_ptr<std::remove_pointer_t<po_file_t>, Free>;
using Iterator = std::unique_ptr<std::remove_pointer_t<po_message_iterator_t>, Free>;

std::string firstError; // the library's handlers get nothing of ours

void note(int severity, po_message_t /*message*/, const char* file, std::size_t line,
          std::size_t /*column*/, int /*lines*/, const char* text) {
    if (severity == PO_SEVERITY_WARNING || !firstError.empty()) {
        return;
    }
    firstError =
        std::string(file != nullptr ? file : "") + ", line " + std::to_string(line) + ": " + text;
    if (severity == PO_SEVERITY_FATAL_ERROR) { // must not return
        std::cerr << "bootlume-preview: " << firstError << '\n';
        std::exit(EXIT_FAILURE);
    }
}

void noteTwo(int severity, po_message_t message, const char* file, std::size_t line,
             std::size_t column, int lines, const char* text, po_message_t /*other*/,
             const char* /*otherFile*/, std::size_t /*otherLine*/, std::size_t /*otherColumn*/,
             int /*otherLines*/, const char* /*otherText*/) {
    note(severity, message, file, line, column, lines, text);
}

File readFile(const std::string& path) {
    firstError.clear();
    const po_xerror_handler handler = {note, noteTwo};
    File file(po_file_read(path.c_str(), &handler));
    if (!file || !firstError.empty()) {
        throw std::runtime_error(firstError.empty() ? path + ": cannot be read" : firstError);
    }
    return file;
}

/// As the header has it; else the file's name, as in de.po.
std::string languageOf(const File& file, const std::string& path) {
    const char* const header = po_file_domain_header(file.get(), nullptr);
    const std::unique_ptr<char, Free> field(header != nullptr ? po_header_field(header, "Language")
                                                              : nullptr);
    const std::string language = field ? field.get() : "";
    return language.empty() ? std::filesystem::path(path).stem().string() : language;
}

/// A message is a page if it is a text command: a title, a semicolon and lines.
bool isPage(po_message_t message) {
    return po_message_is_obsolete(message) == 0 &&
           std::string(po_message_msgid(message)).find(';') != std::string::npos;
}

Page pageOf(int row, const std::string& language, po_message_t message) {
    std::string text = po_message_msgstr(message);
    Page page{row, language, "", "", "", ""};
    if (text.empty() || po_message_is_fuzzy(message) != 0) {
        text = po_message_msgid(message);
        page.doubt = "not translated: the program's own text is shown";
    }
    const std::size_t end = text.find(';');
    if (end == std::string::npos) {
        page.title = text;
        page.broken = "the semicolon between the title and the lines is missing";
    } else {
        page.title = text.substr(0, end);
        page.lines = text.substr(end + 1);
    }
    return page;
}

} // namespace

std::vector<Page> readPo(const std::string& path) {
    const File file = readFile(path);
    const std::string language = languageOf(file, path);
    const Iterator messages(po_message_iterator(file.get(), nullptr));
    std::vector<Page> pages;
    int row = 0;
    while (po_message_t message = po_next_message(messages.get())) {
        ++row;
        if (isPage(message)) {
            pages.push_back(pageOf(row, language, message));
        }
    }
    return pages;
}

} // namespace preview
