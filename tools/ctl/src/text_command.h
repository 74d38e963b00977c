/// \file
/// The command that replaces the texts of the page.
#pragma once

#include <string>
#include <vector>

namespace client {

/// Why the command socket cannot carry these texts as they are meant, as a sentence for people;
/// empty if it can. `lines` is the second field: lines separated by newlines, or by a backslash and
/// the letter n.
std::string refusal(const std::string& title, const std::string& lines);

/// The same for lines that are given one by one.
std::string refusal(const std::string& title, const std::vector<std::string>& lines);

/// The datagram. Only for texts without a refusal.
std::string textCommand(const std::string& title, const std::string& lines);

/// One field from lines given one by one.
std::string joined(const std::vector<std::string>& lines);

} // namespace client
