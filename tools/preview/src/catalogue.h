/// \file
/// A catalogue of texts: a file with a page a line.
#pragma once

#include <string>
#include <vector>

namespace preview {

struct Page {
    int row; ///< line of the file, from 1
    std::string language;
    std::string title;
    std::string lines;  ///< as the program takes them
    std::string broken; ///< why the line is no page, as a sentence; empty where it is one
};

/// Lines of three fields separated by tabs: language, title, and the body's lines separated by \n.
/// Empty lines and lines that begin with # are skipped. Throws std::runtime_error where the file
/// cannot be read.
std::vector<Page> readCatalogue(const std::string& path);

/// The body's lines as the program splits them.
std::vector<std::string> bodyLines(const std::string& lines);

/// True where the page is drawn with the device's language set to Chinese.
bool isChinese(const Page& page);

} // namespace preview
