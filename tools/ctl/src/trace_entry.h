/// \file
/// One line of the trace configuration.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ctl {

/// What a person asks for; what is not given stays as the file has it.
struct TraceWish {
    std::string level;                ///< a digit from 1 to 6
    std::optional<std::string> masks; ///< as it stands in the file
    std::optional<bool> toSyslog;
};

/// The digit of a level given by number or by name, in any case. Throws std::invalid_argument with
/// a sentence for people.
std::string parseLevel(const std::string& text);

/// The mask token of words given as hexadecimal numbers or names, each text one or several of them
/// separated by commas. Throws std::invalid_argument with a sentence for people.
std::string parseMasks(const std::vector<std::string>& texts);

/// True for a line that the splash takes for its own entry.
bool isSplashEntry(const std::string& line);

/// The line that stands for the wish; `before` is the splash's entry so far, or empty.
std::string traceLine(const TraceWish& wish, const std::string& before);

} // namespace ctl
