#include "connection/unix_server.h"

#include "tracing.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace cmd {

namespace {

constexpr int POLL_TIMEOUT_MS = 2000;
const char* const QUIT = "QUIT";

int createSocket() {
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (descriptor < 0) {
        std::perror("socket error");
    }
    return descriptor;
}

} // namespace

UnixServer::UnixServer(const std::string& path, const Callback& callback)
    : m_path(path), m_callback(callback), m_socket(createSocket()) {}

UnixServer::~UnixServer() {
    const int descriptor = m_socket.exchange(-1);
    if (descriptor >= 0) {
        close(descriptor);
    }
}

void UnixServer::run() {
    // The constructor's socket is replaced without a close, on purpose: it stays open and idle.
    m_socket = createSocket();
    if (m_socket >= 0 && bindSocket()) {
        serve();
    }
}

void UnixServer::stop() {
    m_running = false;
    const std::lock_guard<std::mutex> lock(m_socketMutex);
    const int descriptor = m_socket.exchange(-1);
    if (descriptor >= 0) {
        shutdown(descriptor, SHUT_RDWR); // wakes the poll, which a close alone does not
        close(descriptor);
    }
}

bool UnixServer::bindSocket() {
    sockaddr_un address;
    static_assert(sizeof address == 110, "the length that the socket is bound with");
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, m_path.c_str(), sizeof address.sun_path - 1);
    const std::lock_guard<std::mutex> lock(m_socketMutex);
    if (!m_running) {
        return false;
    }
    unlink(m_path.c_str()); // a file left by an earlier run would make the bind fail
    if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
        std::perror("bind error");
        return false;
    }
    return true;
}

void UnixServer::serve() {
    pollfd wait{m_socket, POLLIN, 0};
    while (m_running) {
        TRACE(Trace::LEVEL_VERBOSE, "Polling socket.");
        const int ready = poll(&wait, 1, POLL_TIMEOUT_MS);
        if (ready > 0 && m_running) { // a stop wakes the poll, too, and leaves nothing to read
            readMessage();
        }
    }
}

void UnixServer::readMessage() {
    std::string command;
    {
        const std::lock_guard<std::mutex> lock(m_socketMutex);
        if (!m_running) { // stopped in between: an end, not a failure
            return;
        }
        command = receive();
    }
    if (command.empty()) {
        TRACE(Trace::LEVEL_ERROR, "Nothing read from the socket. Quitting.");
        m_callback(QUIT);
        return;
    }
    TRACE(Trace::LEVEL_DEBUG, "Got Message from socket" << TRACE_VALUE(command));
    m_callback(command);
}

/// One datagram, whole; empty where nothing can be read.
std::string UnixServer::receive() {
    const int descriptor = m_socket;
    std::int32_t count = 0;
    ioctl(descriptor, FIONREAD, &count);
    std::string command(static_cast<std::size_t>(count), '\0');
    const ssize_t length = read(descriptor, command.data(), command.size());
    if (length < 1) {
        dropEmptyDatagram();
        command.clear();
    }
    return command;
}

/// A read of no bytes leaves a datagram of no bytes in its place, to be found again and again.
void UnixServer::dropEmptyDatagram() {
    char probe;
    const int descriptor = m_socket;
    if (recv(descriptor, &probe, sizeof probe, MSG_PEEK | MSG_DONTWAIT) == 0) {
        recv(descriptor, &probe, sizeof probe, MSG_DONTWAIT);
    }
}

} // namespace cmd
