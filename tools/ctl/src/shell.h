/// \file
/// What commands of the system say.
#pragma once

#include <string>

namespace ctl {

/// A text as one argument of the shell.
std::string quoted(const std::string& text);

/// What a shell's commands write, errors included; they are ended after 10 s. "(nothing)" if they
/// write nothing. Ends with a newline.
std::string said(const std::string& commands);

} // namespace ctl
