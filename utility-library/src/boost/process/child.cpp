#include "boost/process/child.h"

#include "boost/process/detail/errors.h"

#include <boost/make_shared.hpp>

#include <sys/wait.h>

#include <cassert>
#include <cerrno>
#include <utility>

namespace boost::process {

void child::set_stdin(detail::file_handle fhstdin) {
    assert(fhstdin.valid());
    stdin_ = boost::make_shared<postream>(std::move(fhstdin));
}

void child::set_stdout(detail::file_handle fhstdout) {
    assert(fhstdout.valid());
    stdout_ = boost::make_shared<pistream>(std::move(fhstdout));
}

void child::set_stderr(detail::file_handle fhstderr) {
    assert(fhstderr.valid());
    stderr_ = boost::make_shared<pistream>(std::move(fhstderr));
}

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

status child::wait() const {
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

} // namespace boost::process
