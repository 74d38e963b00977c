#include "boost/process/detail/systembuf.h"

#include <unistd.h>

#include <cassert>
#include <cerrno>

namespace boost::process::detail {

systembuf::systembuf(int handle, std::size_t bufsize) : handle_(handle), bufsize_(bufsize) {
    assert(handle_ >= 0);
    assert(bufsize_ > 0);
    read_buffer_.reset(new char[bufsize_]);
    write_buffer_.reset(new char[bufsize_]);
    setg(read_buffer_.get(), read_buffer_.get(), read_buffer_.get());
    // One place is kept back: overflow() stores its character before it writes.
    setp(write_buffer_.get(), write_buffer_.get() + bufsize_ - 1);
}

systembuf::int_type systembuf::underflow() {
    assert(gptr() >= egptr());
    ssize_t count;
    do {
        count = ::read(handle_, read_buffer_.get(), bufsize_);
    } while (count == -1 && errno == EINTR); // an interruption is not the end of the output
    if (count < 1) {
        return traits_type::eof();
    }
    setg(read_buffer_.get(), read_buffer_.get(), read_buffer_.get() + count);
    return traits_type::to_int_type(*gptr());
}

systembuf::int_type systembuf::overflow(int_type character) {
    const bool stored = !traits_type::eq_int_type(character, traits_type::eof());
    if (stored) {
        *pptr() = traits_type::to_char_type(character);
        pbump(1);
    }
    if (sync() == -1) {
        pbump(stored ? -1 : 0); // not taken: the place that is kept back stays free
        return traits_type::eof();
    }
    return traits_type::not_eof(character);
}

int systembuf::sync() {
    const auto pending = static_cast<std::size_t>(pptr() - pbase());
    const ssize_t written = ::write(handle_, pbase(), pending);
    if (written < 0 || static_cast<std::size_t>(written) < pending) {
        return -1;
    }
    setp(write_buffer_.get(), write_buffer_.get() + bufsize_ - 1);
    return 0;
}

} // namespace boost::process::detail
