#include "support/qt/TcpServer.h"

#include <cerrno>
#include <iterator>
#include <system_error>
#include <tuple>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mediaworker::test {
namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// A socket bound to a free port, and that port.
std::pair<Descriptor, std::uint16_t> boundSocket() {
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* general = reinterpret_cast<sockaddr*>(&address);
    if (socket.get() < 0 || ::bind(socket.get(), general, sizeof address) != 0 ||
        ::getsockname(socket.get(), general, &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "no free port");
    }
    return {std::move(socket), ntohs(address.sin_port)};
}

} // namespace

TcpServer::TcpServer(Handler handler) : handler_(std::move(handler)) {
    std::tie(listener_, port_) = boundSocket();
    if (::listen(listener_.get(), 64) != 0) {
        throw std::system_error(errno, std::generic_category(), "listen");
    }
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
            ::shutdown(connection.socket.get(), SHUT_RDWR);
        }
    }
    ::shutdown(listener_.get(), SHUT_RDWR);
    if (acceptor_.joinable()) {
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
        Descriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        joinDone();
        const std::lock_guard lock(mutex_);
        if (isStopping_) {
            return;
        }
        if (socket.get() < 0) {
            continue;
        }
        const int on = 1;
        ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
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

Descriptor connectToLoopback(std::uint16_t port) {
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = loopback(port);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return Descriptor();
    }
    const int on = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return socket;
}

bool sendAll(int socket, const void* data, std::size_t size) {
    const auto* next = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t sent = ::send(socket, next, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) {
            continue;
        }
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
        const ssize_t received = ::recv(socket, next, size, 0);
        if (received < 0 && errno == EINTR) {
            continue;
        }
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
