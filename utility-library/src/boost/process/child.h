#pragma once

#include "boost/process/detail/file_handle.h"
#include "boost/process/status.h"
#include "boost/process/stream.h"

#include <boost/shared_ptr.hpp>

#include <sys/types.h>

namespace boost::process {

/// A started child and the parent's ends of its captured standard streams. Copies share the
/// streams.
///
/// Bound to one thread at a time. Does not end or reap the child: wait() does that, once.
class child {
public:
    explicit child(pid_t id) : id_(id) {}

    pid_t id() const { return id_; }

    // Asking for a stream that was not captured is a programming error.
    postream& get_stdin() const;
    pistream& get_stdout() const;
    pistream& get_stderr() const;

    /// Blocks until the child has ended. Throws system_error.
    status wait() const;

protected:
    // Wrap the parent's end of a stream that was captured.
    void set_stdin(detail::file_handle fhstdin);
    void set_stdout(detail::file_handle fhstdout);
    void set_stderr(detail::file_handle fhstderr);

private:
    pid_t id_;
    boost::shared_ptr<postream> stdin_;
    boost::shared_ptr<pistream> stdout_;
    boost::shared_ptr<pistream> stderr_;
};

} // namespace boost::process
