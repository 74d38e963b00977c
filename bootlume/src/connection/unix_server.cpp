#include "connection/unix_server.h"

#include "tracing.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

namespace cmd {

namespace {

constexpr int POLL_TIMEOUT_MS = 2000;
constexpr std::chrono::milliseconds PAUSE_AFTER_FAILURE(1);

/// perror(), but only if standard error takes a line at once: the end must not wait for a reader.
void reportError(const char* what) {
    const int error = errno;
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) != 0) {
        errno = error;
        std::perror(what);
    }
}

int createSocket() {
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (descriptor < 0) {
        reportError("socket error");
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
    sockaddr_un address{};
    static_assert(sizeof address == 110, "the length that the socket is bound with");
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, m_path.c_str(), sizeof address.sun_path - 1);
    std::unique_lock<std::mutex> lock(m_socketMutex);
    if (!m_running) {
        return false;
    }
    unlink(m_path.c_str()); // a file left by an earlier run would make the bind fail
    const bool bound =
        ::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    lock.unlock();
    if (!bound) {
        reportError("bind error");
    }
    return bound;
}

void UnixServer::serve() {
    pollfd wait{m_socket, POLLIN, 0};
    while (m_running) {
        TRACE(Trace::LEVEL_VERBOSE, "Polling socket.");
        const int ready = poll(&wait, 1, POLL_TIMEOUT_MS);
        if (ready > 0) {
            readMessage();
        } else if (ready < 0) { // a lasting failure must not take the processor
            std::this_thread::sleep_for(PAUSE_AFTER_FAILURE);
        }
    }
}

void UnixServer::readMessage() {
    std::unique_lock<std::mutex> lock(m_socketMutex);
    if (!m_running) { // a stop wakes the poll, too: an end, not a failure
        return;
    }
    const std::string command = receive();
    lock.unlock();
    if (command.empty()) {
        TRACE(Trace::LEVEL_ERROR, "Nothing read from the socket. Quitting.");
        m_callback("QUIT");
        return;
    }
    TRACE(Trace::LEVEL_DEBUG, "Got Message from socket" << TRACE_VALUE(command));
    m_callback(command);
}

/// One datagram, whole; empty if nothing can be read.
std::string UnixServer::receive() const {
    std::int32_t count = 0;
    ioctl(m_socket, FIONREAD, &count);
    std::string command(static_cast<std::size_t>(count), '\0');
    const ssize_t length = read(m_socket, command.data(), command.size());
    if (length == 0) { // a read leaves an empty datagram in the queue
        recv(m_socket, nullptr, 0, MSG_DONTWAIT);
    }
    return length < 1 ? std::string() : command;
}

} // namespace cmd
