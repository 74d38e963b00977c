#pragma once

#include "boost/process/child.h"
#include "boost/process/detail/stream_info.h"

#include <map>

namespace boost::process {

/// A child that may have streams on other descriptors than the three standard ones.
class posix_child : public child {
public:
    /// Takes the parent's ends out of the infos and closes the child's ends.
    posix_child(pid_t id, detail::info_map& inputs, detail::info_map& outputs);

    // By the child's descriptor. Asking for one that was not captured is a programming error.
    postream& get_input(int descriptor) const;
    pistream& get_output(int descriptor) const;

private:
    void add_input(int descriptor, detail::file_handle handle);
    void add_output(int descriptor, detail::file_handle handle);

    std::map<int, boost::shared_ptr<postream>> inputs_;
    std::map<int, boost::shared_ptr<pistream>> outputs_;
};

} // namespace boost::process
