/// \file
/// What a check has found, written down.
#pragma once

#include "check.h"

#include <ostream>
#include <string>
#include <vector>

namespace preview {

std::size_t countFindings(const std::vector<CheckedPage>& pages);
void writeTable(std::ostream& out, const std::string& catalogue,
                const std::vector<CheckedPage>& pages);
void writeJson(std::ostream& out, const std::string& catalogue,
               const std::vector<CheckedPage>& pages);

} // namespace preview
