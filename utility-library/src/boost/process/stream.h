#pragma once

#include "boost/process/detail/file_handle.h"
#include "boost/process/detail/systembuf.h"

#include <istream>
#include <ostream>
#include <utility>

namespace boost::process {

/// What a child writes, on the parent's end of the pipe, which it owns. Bound to one thread.
class pistream : public std::istream {
public:
    explicit pistream(detail::file_handle handle)
        : std::istream(nullptr), handle_(std::move(handle)), buffer_(handle_.get()) {
        rdbuf(&buffer_);
    }

private:
    detail::file_handle handle_;
    detail::systembuf buffer_;
};

/// What a child reads, on the parent's end of the pipe, which it owns. Bound to one thread.
class postream : public std::ostream {
public:
    explicit postream(detail::file_handle handle)
        : std::ostream(nullptr), handle_(std::move(handle)), buffer_(handle_.get()) {
        rdbuf(&buffer_);
    }
    /// Writes out what is pending.
    ~postream() override { flush(); }

    /// Writes out what is pending and closes the pipe: the child then reads the end of its input.
    /// What is written to the stream from now on is lost.
    void close() {
        flush();
        rdbuf(nullptr); // the number may soon be somebody else's descriptor
        handle_.close();
    }

private:
    detail::file_handle handle_;
    detail::systembuf buffer_;
};

} // namespace boost::process
