/// \file
/// A catalogue of texts: a file of pages.
#pragma once

#include <string>
#include <vector>

namespace preview {

struct Page {
    int row; ///< line of the file, row of the spreadsheet or message of the translations, from 1
    std::string language;
    std::string title;
    std::string lines;  ///< as the program takes them
    std::string broken; ///< why the row is no page, as a sentence; empty where it is one
    std::string doubt;  ///< what a person should know of the row; empty as a rule
};

/// Reads a .po or .csv file, or lines of three fields separated by tabs: language, title, and the
/// body's lines separated by \n. Throws std::runtime_error where the file cannot be read or holds
/// no page.
std::vector<Page> readCatalogue(const std::string& path);

/// The body's lines as the program splits them.
std::vector<std::string> bodyLines(const std::string& lines);

/// True where the page is drawn with the device's language set to Chinese.
bool isChinese(const Page& page);

} // namespace preview
