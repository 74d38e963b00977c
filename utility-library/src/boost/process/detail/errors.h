#pragma once

namespace boost {
namespace process {
namespace detail {

/// Throws boost::system::system_error with errno and the text of the step that failed.
[[noreturn]] void throw_errno(const char* text);

// The steps that can fail in the parent and in the child alike.
extern const char* const REMAP_DUP_FAILED;
extern const char* const REMAP_CLOSE_FAILED;
extern const char* const DUP_FAILED;

} // namespace detail
} // namespace process
} // namespace boost
