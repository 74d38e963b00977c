#pragma once

#include <boost/system/system_error.hpp>

#include <cerrno>

namespace boost::process::detail {

/// Throws with errno and the text of the step that failed.
[[noreturn]] inline void throw_errno(const char* text) {
    throw boost::system::system_error(errno, boost::system::system_category(), text);
}

} // namespace boost::process::detail
