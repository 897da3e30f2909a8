#pragma once

#include <cstdint>
#include <memory>

namespace mediaworker::test {

class TestCertificates;
class Transport;

/// Where TLS ends on its way to a test server: in the server itself. On Windows in a program of the Linux
/// system around Wine, since Wine's TLS library can only be a client; the server behind that speaks none.
class TlsTermination {
public:
    /// `certificates` must outlive this.
    explicit TlsTermination(const TestCertificates& certificates);
    TlsTermination(const TlsTermination&) = delete;
    TlsTermination& operator=(const TlsTermination&) = delete;
    ~TlsTermination();

    /// Which port clients are to connect to, for a server that listens on that one. Call once. Throws
    /// std::runtime_error.
    [[nodiscard]] std::uint16_t portInFrontOf(std::uint16_t serverPort);
    /// For a connection that the server has accepted; `socket` stays the caller's. Null when the handshake
    /// fails. Thread-safe.
    [[nodiscard]] std::unique_ptr<Transport> accept(int socket) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace mediaworker::test
