#include "boost/process/posix_child.h"

#include <boost/make_shared.hpp>

#include <unistd.h>

#include <cassert>
#include <utility>

namespace boost::process {

namespace {

/// Closes the child's end of a captured stream and gives the parent's away.
detail::file_handle parents_end(detail::stream_info& si, bool output) {
    assert(si.pipe_->rend().valid());
    assert(si.pipe_->wend().valid());
    (output ? si.pipe_->wend() : si.pipe_->rend()).close();
    return std::move(output ? si.pipe_->rend() : si.pipe_->wend());
}

template <class Stream>
Stream& stream_at(const std::map<int, boost::shared_ptr<Stream>>& streams, int descriptor) {
    const auto stream = streams.find(descriptor);
    assert(stream != streams.end());
    return *stream->second;
}

} // namespace

posix_child::posix_child(pid_t id, detail::info_map& inputs, detail::info_map& outputs)
    : child(id) {
    for (auto& [descriptor, si] : inputs) {
        if (si.kind_ == detail::stream_info::use_pipe) {
            add_input(descriptor, parents_end(si, false));
        }
    }
    for (auto& [descriptor, si] : outputs) {
        if (si.kind_ == detail::stream_info::use_pipe) {
            add_output(descriptor, parents_end(si, true));
        }
    }
}

void posix_child::add_input(int descriptor, detail::file_handle handle) {
    if (descriptor == STDIN_FILENO) {
        set_stdin(std::move(handle));
    } else {
        inputs_[descriptor] = boost::make_shared<postream>(std::move(handle));
    }
}

void posix_child::add_output(int descriptor, detail::file_handle handle) {
    if (descriptor == STDOUT_FILENO) {
        set_stdout(std::move(handle));
    } else if (descriptor == STDERR_FILENO) {
        set_stderr(std::move(handle));
    } else {
        outputs_[descriptor] = boost::make_shared<pistream>(std::move(handle));
    }
}

postream& posix_child::get_input(int descriptor) const {
    if (descriptor == STDIN_FILENO) {
        return get_stdin();
    }
    return stream_at(inputs_, descriptor);
}

pistream& posix_child::get_output(int descriptor) const {
    if (descriptor == STDOUT_FILENO) {
        return get_stdout();
    }
    if (descriptor == STDERR_FILENO) {
        return get_stderr();
    }
    return stream_at(outputs_, descriptor);
}

} // namespace boost::process
