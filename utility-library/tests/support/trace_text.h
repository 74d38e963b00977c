#pragma once

#include <cctype>
#include <string>
#include <vector>

/// The lines of a text, each without its newline.
inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        lines.push_back(text.substr(begin, end - begin));
    }
    return lines;
}

/// A console line of the trace without the number of the source line that it ends with.
inline std::string withoutLineNumber(std::string line) {
    while (!line.empty() && std::isdigit(static_cast<unsigned char>(line.back())) != 0) {
        line.pop_back();
    }
    return line;
}

/// The same for every line of a text.
inline std::string withoutLineNumbers(const std::string& text) {
    std::string result;
    for (const std::string& line : linesOf(text)) {
        result += withoutLineNumber(line) + "\n";
    }
    return result;
}

/// A console line of the trace from the thread's name on; empty where it does not begin as one.
inline std::string withoutTimeAndProcess(const std::string& line) {
    const std::string form = "[00000000-000000:000] (0";
    for (std::size_t index = 0; index < form.size(); ++index) {
        const bool digit =
            index < line.size() && std::isdigit(static_cast<unsigned char>(line[index])) != 0;
        if (form[index] == '0' ? !digit : line.compare(index, 1, form, index, 1) != 0) {
            return "";
        }
    }
    const auto name = line.find_first_not_of("0123456789", form.size());
    return name == std::string::npos || line.compare(name, 3, ") (") != 0 ? ""
                                                                          : line.substr(name + 2);
}
