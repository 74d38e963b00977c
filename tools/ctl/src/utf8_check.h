#pragma once

#include <bootlume-client.h>

#include <string>

namespace client {

/// True if the text is well-formed UTF-8: no overlong forms, no surrogates, none above U+10FFFF,
/// and no zero byte.
inline bool isUtf8(const std::string& text) {
    return text.find('\0') == std::string::npos && bootlume_is_utf8(text.c_str()) != 0;
}

} // namespace client
