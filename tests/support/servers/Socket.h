#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace mediaworker::test {

/// A TCP socket of the system with one owner.
class Socket {
public:
    explicit Socket(int value = -1) noexcept : value_(value) {}
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    Socket(Socket&& other) noexcept : value_(other.release()) {}
    Socket& operator=(Socket&& other) noexcept {
        if (this != &other) {
            reset();
            value_ = other.release();
        }
        return *this;
    }
    ~Socket() { reset(); }

    [[nodiscard]] int get() const noexcept { return value_; }
    [[nodiscard]] int release() noexcept { return std::exchange(value_, -1); }
    void reset() noexcept;

private:
    int value_;
};

// The calls of the platform, for sockets whoever owns them.

/// A socket bound to a free port of 127.0.0.1, and that port. Throws std::system_error when there is none.
[[nodiscard]] std::pair<Socket, std::uint16_t> boundSocket();
/// Throws std::system_error.
void startListening(int listener);
/// Blocks; empty when that fails, as after stopListening().
[[nodiscard]] Socket acceptConnection(int listener);
/// Ends a call of acceptConnection() that another thread is in; it may return a connection then.
void stopListening(int listener, std::uint16_t port) noexcept;

/// Connects to a port of 127.0.0.1; an empty socket when that fails.
[[nodiscard]] Socket connectToLoopback(std::uint16_t port);
/// For somebody who closes what he is given.
[[nodiscard]] std::intptr_t duplicate(int socket);

/// What the system took of it; not more than 0 when the peer is gone.
[[nodiscard]] std::ptrdiff_t sendSome(int socket, const void* data, std::size_t size);
/// What has come, at least one byte; 0 at the peer's end, less when there is a failure (a
/// reset leaves ECONNRESET in errno) or a time-out.
[[nodiscard]] std::ptrdiff_t receiveSome(int socket, void* data, std::size_t size);

void shutdownSending(int socket) noexcept;
void shutdownBoth(int socket) noexcept;
/// The next close of the socket makes the peer see a reset.
void lingerForNoTime(int socket) noexcept;
void setReceiveTimeout(int socket, std::chrono::milliseconds timeout) noexcept;
void setSendBufferBytes(int socket, int bytes) noexcept;

/// Waits until `when`. False as soon as the peer has ended its side.
[[nodiscard]] bool sleepWatching(int socket, std::chrono::steady_clock::time_point when);
/// Waits until one of the two has something to read, or its end. Which ones have; neither when that fails.
[[nodiscard]] std::pair<bool, bool> waitForEither(int a, int b);

} // namespace mediaworker::test
