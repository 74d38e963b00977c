/// \file
/// The command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace preview {

enum ExitStatus {
    EXIT_DONE = 0,
    EXIT_FINDINGS = 1,
    EXIT_USAGE = 2,
    EXIT_FAILED = 3,
};

struct Options {
    std::vector<std::string> texts; ///< none, or title and lines
    bool chinese = false;
    bool terminal = false;
    std::int64_t frame = 0;
    std::string png;
    std::string animation;
    std::string picture;
    std::string fontLatin;
    std::string fontChinese;
    std::string pages;
    std::string check;
    std::string watch;
    bool json = false;
    std::string sheet;
    std::string html;
    std::string root;
    std::string bootlume;
    std::string virtualDevice;
};

/// The exit status where the command line already is the whole story.
std::optional<int> parseOptions(int argc, char* argv[], Options& options);

} // namespace preview
