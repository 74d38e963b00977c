#include "boost/process/stream.h"

namespace boost {
namespace process {

postream::~postream() {
    if (handle_.valid()) {
        flush();
    }
}

void postream::close() {
    flush();
    handle_.close();
}

} // namespace process
} // namespace boost
