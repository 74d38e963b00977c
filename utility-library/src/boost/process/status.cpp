#include "boost/process/status.h"

#include <sys/wait.h>

namespace boost {
namespace process {

bool status::exited() const {
    return WIFEXITED(flags_);
}

int status::exit_status() const {
    return (flags_ >> 8) & 0xFF;
}

} // namespace process
} // namespace boost
