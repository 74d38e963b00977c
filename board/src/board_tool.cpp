// The board's own helper: "send PATH TEXT" sends one datagram, exactly the bytes of TEXT. "clock
// SECONDS" sets the wall clock, to years that a 32-bit shell cannot name, too.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>

namespace {

int report(const char* what, bool done) {
    if (!done) {
        std::fprintf(stderr, "board-tool: %s: %s\n", what, std::strerror(errno));
    }
    return done ? 0 : 1;
}

int send(const char* path, const std::string& text) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    const auto sent = sendto(fd, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&address),
                             sizeof(address));
    return report(path, sent == static_cast<ssize_t>(text.size()));
}

int setClock(const char* seconds) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(std::strtoll(seconds, nullptr, 10));
    return report("clock", clock_settime(CLOCK_REALTIME, &time) == 0);
}

} // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "send" && argc == 4) {
        return send(argv[2], argv[3]);
    }
    if (command == "clock" && argc == 3) {
        return setClock(argv[2]);
    }
    std::fputs("usage: board-tool send PATH TEXT | clock SECONDS\n", stderr);
    return 2;
}
