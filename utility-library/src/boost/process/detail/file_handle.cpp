#include "boost/process/detail/file_handle.h"

#include "boost/process/detail/errors.h"

#include <boost/system/system_error.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>

namespace boost {
namespace process {
namespace detail {

const char* const REMAP_DUP_FAILED =
    "boost::process::detail::file_handle::posix_remap: dup2(2) failed";
const char* const REMAP_CLOSE_FAILED =
    "boost::process::detail::file_handle::posix_remap: close(2) failed";
const char* const DUP_FAILED = "boost::process::detail::file_handle::posix_dup: dup2(2) failed";

void throw_errno(const char* text) {
    const boost::system::error_code code(errno, boost::system::system_category());
    throw boost::system::system_error(code, text);
}

file_handle::file_handle(int handle) : handle_(handle) {
    assert(handle_ != invalid_value());
}

file_handle& file_handle::operator=(file_handle&& other) noexcept {
    if (this != &other) {
        if (valid()) {
            ::close(handle_);
        }
        handle_ = other.handle_;
        other.handle_ = invalid_value();
    }
    return *this;
}

file_handle::~file_handle() {
    if (valid()) {
        ::close(handle_);
    }
}

int file_handle::get() const {
    assert(handle_ != invalid_value());
    return handle_;
}

int file_handle::release() {
    assert(handle_ != invalid_value());
    const int handle = handle_;
    handle_ = invalid_value();
    return handle;
}

void file_handle::close() {
    ::close(release());
}

void file_handle::posix_dup(int source, int target) {
    if (::dup2(source, target) == -1) {
        throw_errno(DUP_FAILED);
    }
}

void file_handle::posix_remap(int target) {
    if (get() == target) {
        return;
    }
    if (::dup2(get(), target) == -1) {
        throw_errno(REMAP_DUP_FAILED);
    }
    if (::close(handle_) == -1) {
        throw_errno(REMAP_CLOSE_FAILED);
    }
    handle_ = target;
}

namespace {

/// The same open file at `lowest` or above.
file_handle lifted(file_handle handle, int lowest) {
    if (handle.get() >= lowest) {
        return handle;
    }
    const int higher = ::fcntl(handle.get(), F_DUPFD_CLOEXEC, lowest);
    if (higher == -1) {
        throw_errno("boost::process::detail::pipe::pipe: fcntl(2) failed");
    }
    return file_handle(higher);
}

} // namespace

pipe::pipe(int lowest) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) == -1) {
        throw_errno("boost::process::detail::pipe::pipe: pipe(2) failed");
    }
    file_handle read_end(ends[0]);
    file_handle write_end(ends[1]);
    rend_ = lifted(std::move(read_end), lowest);
    wend_ = lifted(std::move(write_end), lowest);
}

} // namespace detail
} // namespace process
} // namespace boost
