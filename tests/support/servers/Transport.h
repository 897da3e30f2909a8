#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace mediaworker::test {

/// One connection of a test server, plain or TLS. Used on one thread only, which must stay the same.
class Transport {
public:
    Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;
    virtual ~Transport() = default;

    /// The header of an HTTP request, its empty line included; empty when none came.
    [[nodiscard]] virtual std::string receiveHeader() = 0;
    /// Blocks until everything is handed to the system. False when the client is gone.
    [[nodiscard]] virtual bool send(const void* data, std::size_t size) = 0;
    /// Says that nothing more comes, and waits a moment for the client to have read it all.
    virtual void finish() = 0;
    virtual void reset() = 0;

    /// For waiting on the client's end. -1 after reset().
    [[nodiscard]] virtual int socket() const noexcept = 0;
};

/// Without TLS. `socket` stays the caller's.
[[nodiscard]] std::unique_ptr<Transport> plainTransport(int socket);

} // namespace mediaworker::test
