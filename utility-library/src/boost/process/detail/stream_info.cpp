#include "boost/process/detail/stream_info.h"

#include <cassert>

namespace boost::process::detail {

stream_info::stream_info(const stream_behavior& behavior, bool output) {
    switch (behavior.kind()) {
    case stream_behavior::capture:
        kind_ = use_pipe;
        pipe_.emplace();
        break;
    case stream_behavior::close:
        kind_ = close;
        break;
    case stream_behavior::inherit:
        kind_ = inherit;
        break;
    case stream_behavior::redirect_to_stdout:
        kind_ = redirect;
        target_ = 1;
        break;
    case stream_behavior::silence:
        kind_ = use_file;
        file_ = output ? "/dev/null" : "/dev/zero";
        break;
    case stream_behavior::posix_redirect:
        kind_ = redirect;
        target_ = behavior.target();
        break;
    default:
        assert(false);
    }
}

info_map make_infos(const std::map<int, stream_behavior>& behaviors, bool output) {
    info_map infos;
    for (const auto& [descriptor, behavior] : behaviors) {
        infos.emplace(descriptor, stream_info(behavior, output));
    }
    return infos;
}

} // namespace boost::process::detail
