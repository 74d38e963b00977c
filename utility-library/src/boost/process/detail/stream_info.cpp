#include "boost/process/detail/stream_info.h"

#include <cassert>

namespace boost {
namespace process {
namespace detail {

stream_info::stream_info(const stream_behavior& behavior, bool output, int lowest) {
    switch (behavior.kind()) {
    case stream_behavior::capture:
        kind_ = use_pipe;
        pipe_.emplace(lowest);
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

info_map make_infos(const std::map<int, stream_behavior>& behaviors, bool output, int lowest) {
    info_map infos;
    for (const auto& behavior : behaviors) {
        infos.emplace(behavior.first, stream_info(behavior.second, output, lowest));
    }
    return infos;
}

} // namespace detail
} // namespace process
} // namespace boost
