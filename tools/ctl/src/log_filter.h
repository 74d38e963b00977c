/// \file
/// The splash's log as it may be passed on.
#pragma once

#include <string>

namespace ctl {

/// The log without what may be nobody else's business: texts that were sent to the splash, which
/// may go over several lines, and what the reboot programs wrote.
std::string withoutTexts(const std::string& log);

} // namespace ctl
