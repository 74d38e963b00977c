#pragma once

#include <string>

namespace paint {

/// The text as cairo takes it: itself where it is sound UTF-8 throughout; else a copy in `repaired`
/// with U+FFFD for each invalid sequence. cairo refuses noncharacters as well, and one refused text
/// would end all drawing in its context for good.
const std::string& drawableText(const std::string& text, std::string& repaired);

} // namespace paint
