#pragma once

#include <functional>
#include <string>

namespace preview {

/// Calls `look` at once, and again whenever the file has been written or replaced, until a signal
/// asks for the end or nobody reads standard output any more: throws Interrupted then, and
/// std::runtime_error where its folder cannot be watched.
[[noreturn]] void watch(const std::string& path, const std::function<void()>& look);

} // namespace preview
