#pragma once

#include <string>

namespace paint {

/// The text as cairo takes it: U+FFFD replaces each sequence that is not sound UTF-8. cairo refuses
/// noncharacters as well, and one refused text would end all drawing in its context.
std::string drawableText(const std::string& text);

} // namespace paint
