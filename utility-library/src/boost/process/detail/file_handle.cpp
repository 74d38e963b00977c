#include "boost/process/detail/file_handle.h"

#include "boost/process/detail/errors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cassert>

namespace boost::process::detail {

file_handle::file_handle(int handle) : handle_(handle) {
    assert(handle_ != invalid_value());
}

file_handle& file_handle::operator=(file_handle&& other) noexcept {
    file_handle taken(std::move(other)); // its end closes the old descriptor
    std::swap(handle_, taken.handle_);
    return *this;
}

file_handle::~file_handle() {
    if (valid()) {
        close();
    }
}

int file_handle::get() const {
    assert(handle_ != invalid_value());
    return handle_;
}

int file_handle::release() {
    assert(handle_ != invalid_value());
    return std::exchange(handle_, invalid_value());
}

void file_handle::close() {
    ::close(release());
}

const char* file_handle::posix_dup(int source, int target) {
    return ::dup2(source, target) != -1
               ? nullptr
               : "boost::process::detail::file_handle::posix_dup: dup2(2) failed";
}

const char* file_handle::posix_remap(int target) {
    if (get() == target) {
        return nullptr;
    }
    if (::dup2(handle_, target) == -1) {
        return "boost::process::detail::file_handle::posix_remap: dup2(2) failed";
    }
    if (::close(std::exchange(handle_, target)) == -1) {
        return "boost::process::detail::file_handle::posix_remap: close(2) failed";
    }
    return nullptr;
}

pipe::pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) == -1) {
        throw_errno("boost::process::detail::pipe::pipe: pipe(2) failed");
    }
    rend_ = file_handle(ends[0]);
    wend_ = file_handle(ends[1]);
}

} // namespace boost::process::detail
