// Lines from a descriptor that hands its bytes out in pieces of any size.
#include "fuzzing.h"

#include "boost/process/detail/systembuf.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <vector>

namespace {

std::vector<std::string> linesOf(std::istream& stream) {
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// Each packet is one read; its length is the byte before it.
std::string sendPackets(int descriptor, const std::uint8_t* data, std::size_t size) {
    std::string sent;
    for (std::size_t at = 0; at < size && sent.size() < 30000;) {
        const std::size_t length = std::min<std::size_t>(data[at], size - at - 1);
        if (length > 0 &&
            send(descriptor, data + at + 1, length, MSG_DONTWAIT) != static_cast<ssize_t>(length)) {
            break;
        }
        sent.append(textOf(data + at + 1, length));
        at += length + 1;
    }
    return sent;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0, "there is a socket");
    const std::string sent = sendPackets(ends[1], data, size);
    close(ends[1]);

    boost::process::detail::systembuf buffer(ends[0], 256);
    std::istream stream(&buffer);
    std::istringstream expected(sent);
    require(linesOf(stream) == linesOf(expected), "every line arrives, in order");
    close(ends[0]);
    return 0;
}
