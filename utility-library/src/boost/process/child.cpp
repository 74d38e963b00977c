#include "boost/process/child.h"

#include "boost/process/detail/errors.h"

#include <boost/make_shared.hpp>

#include <sys/wait.h>

#include <cassert>
#include <cerrno>
#include <utility>

namespace boost {
namespace process {

namespace {

template <class Stream>
boost::shared_ptr<Stream> stream_over(detail::file_handle handle) {
    return handle.valid() ? boost::make_shared<Stream>(std::move(handle))
                          : boost::shared_ptr<Stream>();
}

} // namespace

child::child(pid_t id, detail::file_handle fhstdin, detail::file_handle fhstdout,
             detail::file_handle fhstderr)
    : id_(id),
      stdin_(stream_over<postream>(std::move(fhstdin))),
      stdout_(stream_over<pistream>(std::move(fhstdout))),
      stderr_(stream_over<pistream>(std::move(fhstderr))) {}

postream& child::get_stdin() const {
    assert(stdin_);
    return *stdin_;
}

pistream& child::get_stdout() const {
    assert(stdout_);
    return *stdout_;
}

pistream& child::get_stderr() const {
    assert(stderr_);
    return *stderr_;
}

status child::wait() {
    int flags = 0;
    pid_t ended;
    do {
        ended = ::waitpid(id_, &flags, 0);
    } while (ended == -1 && errno == EINTR); // an interruption says nothing about the child
    if (ended == -1) {
        detail::throw_errno("boost::process::child::wait: waitpid(2) failed");
    }
    return status(flags);
}

} // namespace process
} // namespace boost
