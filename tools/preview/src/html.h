#pragma once

#include "check.h"

#include <string>
#include <vector>

namespace preview {

/// The pages as one HTML page that needs nothing else: pictures, texts to be selected, findings,
/// and a choice of language. `catalogue` names them.
std::string htmlOf(const std::string& catalogue, const std::vector<CheckedPage>& pages);

} // namespace preview
