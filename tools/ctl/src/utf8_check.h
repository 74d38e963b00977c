#pragma once

#include <string>

namespace client {

/// True where the text is well-formed UTF-8: no overlong forms, no surrogates, none above U+10FFFF.
bool isUtf8(const std::string& text);

} // namespace client
