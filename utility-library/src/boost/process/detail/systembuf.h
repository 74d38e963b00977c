#pragma once

#include <boost/noncopyable.hpp>
#include <boost/scoped_array.hpp>

#include <cstddef>
#include <streambuf>

namespace boost::process::detail {

/// A stream buffer over one descriptor, which it borrows. Bound to one thread.
class systembuf : public std::streambuf, boost::noncopyable {
public:
    /// A read buffer and a write buffer of this many bytes each.
    static constexpr std::size_t DEFAULT_SIZE = 8192;

    explicit systembuf(int handle, std::size_t bufsize = DEFAULT_SIZE);

protected:
    /// One read; the end of the file if it yields nothing or fails.
    int_type underflow() override;
    /// Stores the character and writes the buffer out; eof if the write falls short.
    int_type overflow(int_type character) override;
    /// One write of all that is pending; -1 if fewer bytes were written.
    int sync() override;

private:
    const int handle_;
    const std::size_t bufsize_;
    boost::scoped_array<char> read_buffer_;
    boost::scoped_array<char> write_buffer_;
};

} // namespace boost::process::detail
