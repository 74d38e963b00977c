#pragma once

#include "boost/process/detail/file_handle.h"
#include "boost/process/detail/systembuf.h"

#include <boost/noncopyable.hpp>

#include <istream>
#include <ostream>
#include <utility>

namespace boost {
namespace process {

namespace detail {

/// A descriptor with a buffer over it, built before the stream that uses them.
struct owned_buffer {
    explicit owned_buffer(file_handle handle)
        : handle_(std::move(handle)), buffer_(handle_.get()) {}

    file_handle handle_;
    systembuf buffer_;
};

} // namespace detail

/// What a child writes, on the parent's end of the pipe, which it owns. Bound to one thread.
class pistream : boost::noncopyable, private detail::owned_buffer, public std::istream {
public:
    explicit pistream(detail::file_handle handle)
        : owned_buffer(std::move(handle)), std::istream(&buffer_) {}

    /// Closes the pipe: the child gets an error where it goes on writing.
    void close() { handle_.close(); }
};

/// What a child reads, on the parent's end of the pipe, which it owns. Bound to one thread.
class postream : boost::noncopyable, private detail::owned_buffer, public std::ostream {
public:
    explicit postream(detail::file_handle handle)
        : owned_buffer(std::move(handle)), std::ostream(&buffer_) {}
    /// Writes out what is pending.
    ~postream() override;

    /// Writes out what is pending and closes the pipe: the child then reads the end of its input.
    void close();
};

} // namespace process
} // namespace boost
