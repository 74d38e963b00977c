// The board's own helper: "send PATH TEXT" sends one datagram, exactly the bytes of TEXT.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

int main(int argc, char** argv) {
    if (argc != 4 || std::string(argv[1]) != "send") {
        std::fputs("usage: board-tool send PATH TEXT\n", stderr);
        return 2;
    }
    const std::string text = argv[3];
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, argv[2], sizeof(address.sun_path) - 1);
    const auto sent = sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&address),
                             sizeof(address));
    if (sent != static_cast<ssize_t>(text.size())) {
        std::fprintf(stderr, "board-tool: %s: %s\n", argv[2], std::strerror(errno));
        return 1;
    }
    return 0;
}
