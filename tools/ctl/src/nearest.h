/// \file
/// What somebody who made a typing error may have meant.
#pragma once

#include <string>
#include <vector>

namespace ctl {

/// The one of `known` that differs from `word` in the fewest characters; capitals make no
/// difference. Empty if none is near.
std::string nearest(const std::string& word, const std::vector<std::string>& known);

} // namespace ctl
