#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

namespace cmd {

/// Datagram server for text commands: one bound socket, one poll loop, one callback.
///
/// run() is the body of a thread that the owner starts, and joins before it destroys the server.
/// stop() may be called from any thread and ends run() at once. The callback runs on the thread of
/// run().
class UnixServer {
public:
    /// Takes the text of one datagram, the bytes as they came.
    using Callback = std::function<void(std::string)>;

    UnixServer(const std::string& path, const Callback& callback);
    virtual ~UnixServer();

    UnixServer(const UnixServer&) = delete;
    UnixServer& operator=(const UnixServer&) = delete;

    /// Binds the path, replacing what is there, and serves until stop(). Returns at once, with a
    /// line on standard error, if the socket cannot be made or bound. The socket's file stays
    /// behind.
    void run();
    void stop();

private:
    bool bindSocket();
    void serve();
    void readMessage();
    std::string receive() const;

    [[maybe_unused]] std::uint32_t m_bufferSize = 128; ///< no limit: a datagram is read whole
    std::string m_path;
    Callback m_callback;
    std::atomic<bool> m_running{true};
    std::atomic<std::int32_t> m_socket{-1};
    std::mutex m_socketMutex; ///< keeps stop() from closing a socket that is being read or bound
};

} // namespace cmd
