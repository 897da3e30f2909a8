#include "support/servers/Socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mediaworker::test {
namespace {

using std::chrono::steady_clock;

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void sendAtOnce(int socket) {
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

} // namespace

void Socket::reset() noexcept {
    if (value_ >= 0) {
        ::close(release());
    }
}

std::pair<Socket, std::uint16_t> boundSocket() {
    Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* general = reinterpret_cast<sockaddr*>(&address);
    if (socket.get() < 0 || ::bind(socket.get(), general, sizeof address) != 0 ||
        ::getsockname(socket.get(), general, &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "no free port");
    }
    return {std::move(socket), ntohs(address.sin_port)};
}

void startListening(int listener) {
    if (::listen(listener, 64) != 0) {
        throw std::system_error(errno, std::generic_category(), "listen");
    }
}

Socket acceptConnection(int listener) {
    Socket socket(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (socket.get() >= 0) {
        sendAtOnce(socket.get());
    }
    return socket;
}

void stopListening(int listener, std::uint16_t /*port*/) noexcept {
    ::shutdown(listener, SHUT_RDWR);
}

Socket connectToLoopback(std::uint16_t port) {
    Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = loopback(port);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return Socket();
    }
    sendAtOnce(socket.get());
    return socket;
}

std::intptr_t duplicate(int socket) {
    return ::dup(socket); // NOLINT(android-cloexec-dup)
}

std::ptrdiff_t sendSome(int socket, const void* data, std::size_t size) {
    ssize_t sent = 0;
    do {
        sent = ::send(socket, data, size, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent;
}

std::ptrdiff_t receiveSome(int socket, void* data, std::size_t size) {
    ssize_t received = 0;
    do {
        received = ::recv(socket, data, size, 0);
    } while (received < 0 && errno == EINTR);
    return received;
}

void shutdownSending(int socket) noexcept {
    ::shutdown(socket, SHUT_WR);
}

void shutdownBoth(int socket) noexcept {
    ::shutdown(socket, SHUT_RDWR);
}

void lingerForNoTime(int socket) noexcept {
    const linger option = {.l_onoff = 1, .l_linger = 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &option, sizeof option);
}

void setReceiveTimeout(int socket, std::chrono::milliseconds timeout) noexcept {
    const timeval limit = {.tv_sec = timeout.count() / 1000, .tv_usec = timeout.count() % 1000 * 1000};
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

void setSendBufferBytes(int socket, int bytes) noexcept {
    ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
}

bool sleepWatching(int socket, steady_clock::time_point when) {
    while (true) {
        const auto rest =
            std::max(std::chrono::nanoseconds(0), std::chrono::nanoseconds(when - steady_clock::now()));
        const timespec limit = {.tv_sec = rest.count() / 1'000'000'000,
                                .tv_nsec = rest.count() % 1'000'000'000};
        pollfd watched = {.fd = socket, .events = POLLRDHUP, .revents = 0};
        const int result = ::ppoll(&watched, 1, &limit, nullptr);
        if (result > 0) {
            return false;
        }
        if (rest.count() == 0) {
            return true;
        }
    }
}

std::pair<bool, bool> waitForEither(int a, int b) {
    std::array<pollfd, 2> watched = {pollfd{.fd = a, .events = POLLIN, .revents = 0},
                                     pollfd{.fd = b, .events = POLLIN, .revents = 0}};
    if (::poll(watched.data(), watched.size(), -1) <= 0) {
        return {false, false};
    }
    return {watched[0].revents != 0, watched[1].revents != 0};
}

} // namespace mediaworker::test
