#include "support/servers/Socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include <winsock2.h>
#include <ws2tcpip.h>

namespace mediaworker::test {
namespace {

using std::chrono::steady_clock;

SOCKET native(int socket) {
    return static_cast<SOCKET>(static_cast<std::intptr_t>(socket));
}

/// The values are those of handles: small.
int portable(SOCKET socket) {
    return socket == INVALID_SOCKET ? -1 : static_cast<int>(socket);
}

[[noreturn]] void fail(const char* what) {
    throw std::system_error(WSAGetLastError(), std::system_category(), what);
}

SOCKET newSocket() {
    static const int started = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data);
    }();
    static_cast<void>(started);
    // Not inherited: the worker must not hold a connection of the server that feeds it.
    return WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0,
                      WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

template <class Value>
void setOption(int socket, int level, int name, const Value& value) {
    ::setsockopt(native(socket), level, name, reinterpret_cast<const char*>(&value), sizeof value);
}

void sendAtOnce(int socket) {
    setOption(socket, IPPROTO_TCP, TCP_NODELAY, BOOL{TRUE});
}

} // namespace

void Socket::reset() noexcept {
    if (value_ >= 0) {
        ::closesocket(native(release()));
    }
}

std::pair<Socket, std::uint16_t> boundSocket() {
    Socket socket(portable(newSocket()));
    sockaddr_in address = loopback(0);
    int size = sizeof address;
    auto* general = reinterpret_cast<sockaddr*>(&address);
    if (socket.get() < 0 || ::bind(native(socket.get()), general, sizeof address) != 0 ||
        ::getsockname(native(socket.get()), general, &size) != 0) {
        fail("no free port");
    }
    return {std::move(socket), ntohs(address.sin_port)};
}

void startListening(int listener) {
    if (::listen(native(listener), 64) != 0) {
        fail("listen");
    }
}

Socket acceptConnection(int listener) {
    Socket socket(portable(::accept(native(listener), nullptr, nullptr)));
    if (socket.get() >= 0) {
        SetHandleInformation(reinterpret_cast<HANDLE>(native(socket.get())), HANDLE_FLAG_INHERIT, 0);
        sendAtOnce(socket.get());
    }
    return socket;
}

void stopListening(int /*listener*/, std::uint16_t port) noexcept {
    // Nothing but a connection wakes accept() without closing the socket under it.
    static_cast<void>(connectToLoopback(port));
}

Socket connectToLoopback(std::uint16_t port) {
    Socket socket(portable(newSocket()));
    const sockaddr_in address = loopback(port);
    if (::connect(native(socket.get()), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return Socket();
    }
    sendAtOnce(socket.get());
    return socket;
}

std::intptr_t duplicate(int socket) {
    WSAPROTOCOL_INFOW info;
    if (WSADuplicateSocketW(native(socket), GetCurrentProcessId(), &info) != 0) {
        fail("WSADuplicateSocket");
    }
    return static_cast<std::intptr_t>(WSASocketW(FROM_PROTOCOL_INFO, FROM_PROTOCOL_INFO, FROM_PROTOCOL_INFO,
                                                 &info, 0, WSA_FLAG_OVERLAPPED));
}

std::ptrdiff_t sendSome(int socket, const void* data, std::size_t size) {
    constexpr std::size_t kAtOnce = 1 << 20;
    return ::send(native(socket), static_cast<const char*>(data), static_cast<int>(std::min(size, kAtOnce)),
                  0);
}

std::ptrdiff_t receiveSome(int socket, void* data, std::size_t size) {
    constexpr std::size_t kAtOnce = 1 << 20;
    const int received =
        ::recv(native(socket), static_cast<char*>(data), static_cast<int>(std::min(size, kAtOnce)), 0);
    if (received < 0 && WSAGetLastError() == WSAECONNRESET) {
        errno = ECONNRESET;
    }
    return received;
}

void shutdownSending(int socket) noexcept {
    ::shutdown(native(socket), SD_SEND);
}

void shutdownBoth(int socket) noexcept {
    ::shutdown(native(socket), SD_BOTH);
}

void lingerForNoTime(int socket) noexcept {
    setOption(socket, SOL_SOCKET, SO_LINGER, linger{.l_onoff = 1, .l_linger = 0});
}

void setReceiveTimeout(int socket, std::chrono::milliseconds timeout) noexcept {
    setOption(socket, SOL_SOCKET, SO_RCVTIMEO, static_cast<DWORD>(timeout.count()));
}

void setSendBufferBytes(int socket, int bytes) noexcept {
    setOption(socket, SOL_SOCKET, SO_SNDBUF, bytes);
}

bool sleepWatching(int socket, steady_clock::time_point when) {
    // WSAPoll() sleeps through a shutdownBoth() by another thread.
    constexpr std::int64_t kLongestWaitMs = 100;
    while (true) {
        const auto rest = std::max(steady_clock::duration(0), when - steady_clock::now());
        const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(rest).count();
        // A client says nothing after its request: what can be read is its end.
        WSAPOLLFD watched = {.fd = native(socket), .events = POLLRDNORM, .revents = 0};
        if (WSAPoll(&watched, 1, static_cast<int>(std::min<std::int64_t>(milliseconds, kLongestWaitMs))) >
            0) {
            return false;
        }
        if (::send(native(socket), "", 0, 0) < 0) { // sends nothing; only a side that is shut down fails
            return false;
        }
        if (rest.count() == 0) {
            return true;
        }
    }
}

std::pair<bool, bool> waitForEither(int a, int b) {
    std::array<WSAPOLLFD, 2> watched = {WSAPOLLFD{.fd = native(a), .events = POLLRDNORM, .revents = 0},
                                        WSAPOLLFD{.fd = native(b), .events = POLLRDNORM, .revents = 0}};
    if (WSAPoll(watched.data(), static_cast<ULONG>(watched.size()), -1) <= 0) {
        return {false, false};
    }
    return {watched[0].revents != 0, watched[1].revents != 0};
}

} // namespace mediaworker::test
