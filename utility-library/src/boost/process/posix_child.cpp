#include "boost/process/posix_child.h"

#include <boost/make_shared.hpp>

#include <unistd.h>

#include <cassert>
#include <utility>

namespace boost {
namespace process {

namespace {

/// The parent's end of a captured stream, the child's end closed; empty where there is none.
detail::file_handle parents_end(detail::info_map& infos, int descriptor, bool output) {
    const auto info = infos.find(descriptor);
    if (info == infos.end() || info->second.kind_ != detail::stream_info::use_pipe) {
        return detail::file_handle();
    }
    detail::stream_info& si = info->second;
    assert(si.pipe_->rend().valid());
    assert(si.pipe_->wend().valid());
    detail::file_handle& childs = output ? si.pipe_->wend() : si.pipe_->rend();
    detail::file_handle& parents = output ? si.pipe_->rend() : si.pipe_->wend();
    childs.close();
    si.kind_ = detail::stream_info::close; // taken
    detail::file_handle taken(std::move(parents));
    return taken;
}

template <class Stream>
std::map<int, boost::shared_ptr<Stream>> further_streams(detail::info_map& infos, bool output) {
    std::map<int, boost::shared_ptr<Stream>> streams;
    for (const auto& info : infos) {
        detail::file_handle handle = parents_end(infos, info.first, output);
        if (handle.valid()) {
            streams[info.first] = boost::make_shared<Stream>(std::move(handle));
        }
    }
    return streams;
}

template <class Stream>
Stream& stream_at(const std::map<int, boost::shared_ptr<Stream>>& streams, int descriptor) {
    const auto stream = streams.find(descriptor);
    assert(stream != streams.end());
    return *stream->second;
}

} // namespace

posix_child::posix_child(pid_t id, detail::info_map& inputs, detail::info_map& outputs)
    : child(id, parents_end(inputs, STDIN_FILENO, false), parents_end(outputs, STDOUT_FILENO, true),
            parents_end(outputs, STDERR_FILENO, true)),
      inputs_(further_streams<postream>(inputs, false)),
      outputs_(further_streams<pistream>(outputs, true)) {}

postream& posix_child::get_input(int descriptor) const {
    if (descriptor == STDIN_FILENO) {
        return get_stdin();
    }
    return stream_at(inputs_, descriptor);
}

pistream& posix_child::get_output(int descriptor) const {
    switch (descriptor) {
    case STDOUT_FILENO:
        return get_stdout();
    case STDERR_FILENO:
        return get_stderr();
    default:
        return stream_at(outputs_, descriptor);
    }
}

} // namespace process
} // namespace boost
