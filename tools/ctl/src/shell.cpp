#include "shell.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace ctl {

std::string quoted(const std::string& text) {
    std::string argument = "'";
    for (const char character : text) {
        argument += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return argument + "'";
}

std::string said(const std::string& commands) {
    const std::string bounded = "timeout 10 sh -c " + quoted(commands) + " 2>&1 </dev/null";
    std::FILE* const pipe = popen(bounded.c_str(), "re");
    if (pipe == nullptr) {
        return std::strerror(errno) + std::string("\n");
    }
    std::string text;
    std::array<char, 4096> piece{};
    for (std::size_t length = 0; (length = std::fread(piece.data(), 1, piece.size(), pipe)) > 0;) {
        text.append(piece.data(), length);
    }
    pclose(pipe);
    if (text.empty()) {
        return "(nothing)\n";
    }
    return text.back() == '\n' ? text : text + "\n";
}

} // namespace ctl
