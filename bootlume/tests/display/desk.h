#pragma once

#include <map>
#include <string>

namespace desk {

/// Where an absolute path of the program lies on the desk. Fails the whole test program, with a
/// line that says why, where it does not run on a desk.
std::string path(const std::string& fixed);

/// How often each device call has been made by this process since `since` was taken.
using Calls = std::map<std::string, int>;
Calls calls();
int made(const Calls& since, const std::string& call);

} // namespace desk
