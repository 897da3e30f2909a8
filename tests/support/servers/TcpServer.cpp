#include "support/servers/TcpServer.h"

#include <iterator>
#include <tuple>
#include <utility>

namespace mediaworker::test {
TcpServer::TcpServer(Handler handler) : handler_(std::move(handler)) {
    std::tie(listener_, port_) = boundSocket();
    startListening(listener_.get());
    acceptor_ = std::thread([this] { acceptConnections(); });
}

TcpServer::~TcpServer() {
    stop();
}

void TcpServer::stop() {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
        for (const Connection& connection : connections_) {
            shutdownBoth(connection.socket.get());
        }
    }
    if (acceptor_.joinable()) {
        stopListening(listener_.get(), port_);
        acceptor_.join();
    }
    // The acceptor was the only one to add connections.
    for (Connection& connection : connections_) {
        connection.thread.join();
    }
    connections_.clear();
    listener_.reset();
}

void TcpServer::acceptConnections() {
    while (true) {
        Socket socket = acceptConnection(listener_.get());
        joinDone();
        const std::lock_guard lock(mutex_);
        if (isStopping_) {
            return;
        }
        if (socket.get() < 0) {
            continue;
        }
        Connection& connection = connections_.emplace_back();
        connection.socket = std::move(socket);
        connection.thread = std::thread([this, &connection] {
            handler_(connection.socket.get());
            const std::lock_guard done(mutex_);
            connection.socket.reset();
            connection.isDone = true;
        });
    }
}

void TcpServer::joinDone() {
    std::list<Connection> done;
    {
        const std::lock_guard lock(mutex_);
        for (auto it = connections_.begin(); it != connections_.end();) {
            const auto next = std::next(it);
            if (it->isDone) {
                done.splice(done.end(), connections_, it);
            }
            it = next;
        }
    }
    for (Connection& connection : done) {
        connection.thread.join();
    }
}

RefusingPort::RefusingPort() {
    std::tie(socket_, port_) = boundSocket();
}

bool sendAll(int socket, const void* data, std::size_t size) {
    const auto* next = static_cast<const char*>(data);
    while (size > 0) {
        const std::ptrdiff_t sent = sendSome(socket, next, size);
        if (sent <= 0) {
            return false;
        }
        next += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

bool receiveAll(int socket, void* data, std::size_t size) {
    auto* next = static_cast<char*>(data);
    while (size > 0) {
        const std::ptrdiff_t received = receiveSome(socket, next, size);
        if (received <= 0) {
            return false;
        }
        next += received;
        size -= static_cast<std::size_t>(received);
    }
    return true;
}

std::string receiveHttpHeader(int socket) {
    constexpr std::size_t kLongest = 65536;
    std::string header;
    while (!header.ends_with("\r\n\r\n")) {
        char byte = 0;
        if (header.size() == kLongest || !receiveAll(socket, &byte, 1)) {
            return {};
        }
        header.push_back(byte);
    }
    return header;
}

} // namespace mediaworker::test
