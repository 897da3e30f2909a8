#pragma once

#include "support/servers/Socket.h"

#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace mediaworker::test {

/// Listens on a free port of 127.0.0.1 and runs a handler on a thread of its own for every connection.
class TcpServer {
public:
    /// Gets the connected socket, and must not keep it. Runs on the connection's thread.
    using Handler = std::function<void(int socket)>;

    /// Throws std::system_error when no port can be had.
    explicit TcpServer(Handler handler);
    TcpServer(const TcpServer&) = delete;
    TcpServer& operator=(const TcpServer&) = delete;
    ~TcpServer();

    /// Shuts every connection down, so that handlers see their peers gone, and waits for them. Idempotent.
    void stop();

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

private:
    struct Connection {
        Socket socket;
        std::thread thread;
        bool isDone = false;
    };

    void acceptConnections();
    void joinDone();

    Handler handler_;
    Socket listener_;
    std::uint16_t port_ = 0;
    std::thread acceptor_;

    std::mutex mutex_;
    // Guarded by mutex_.
    bool isStopping_ = false;
    std::list<Connection> connections_;
};

/// A port of 127.0.0.1 that refuses connections for as long as this lives.
class RefusingPort {
public:
    RefusingPort();
    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

private:
    Socket socket_;
    std::uint16_t port_ = 0;
};

/// Sends everything. False when the peer is gone.
[[nodiscard]] bool sendAll(int socket, const void* data, std::size_t size);

/// Reads exactly `size` bytes. False when the peer ends before.
[[nodiscard]] bool receiveAll(int socket, void* data, std::size_t size);

/// Reads up to and including the empty line that ends an HTTP header; empty when the peer ends before or the
/// header is longer than 64 KiB. Reads no byte more than that.
[[nodiscard]] std::string receiveHttpHeader(int socket);

} // namespace mediaworker::test
