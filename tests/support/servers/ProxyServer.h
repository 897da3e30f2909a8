#pragma once

#include "support/servers/TcpServer.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace mediaworker::test {

struct Credentials {
    std::string user;
    std::string password;

    bool operator==(const Credentials&) const = default;
};

/// What a client asked of a proxy.
struct ProxyRequest {
    std::string method; ///< "GET", "CONNECT", or "SOCKS5"
    std::string host;
    std::uint16_t port = 0;
    std::optional<Credentials> credentials;
    bool wasServed = false;
};

/// A proxy on a free port of 127.0.0.1 that knows hosts which nobody else does, so that a test can tell
/// traffic through it from any other. Thread-safe.
class ProxyServer {
public:
    enum class Kind {
        Http,  ///< absolute-URI requests and CONNECT (RFC 9110)
        Socks5 ///< CONNECT with domain names or IPv4 (RFC 1928), user and password (RFC 1929)
    };

    /// `hosts` gives the port of 127.0.0.1 for each host name, whatever port the client asks for. With
    /// `credentials`, clients must give these.
    ProxyServer(Kind kind, std::map<std::string, std::uint16_t> hosts,
                std::optional<Credentials> credentials = std::nullopt);
    ~ProxyServer();

    [[nodiscard]] std::uint16_t port() const noexcept;
    /// "http://[user:password@]127.0.0.1:PORT", as the command line of the worker takes it.
    [[nodiscard]] std::string url() const;

    [[nodiscard]] std::vector<ProxyRequest> requests() const;

private:
    void serveHttp(int socket);
    void serveSocks5(int socket);
    std::optional<ProxyRequest> readSocks5Request(int socket);
    /// A connection to where the request goes; empty when it is not allowed or not known.
    Socket open(const ProxyRequest& request);
    void record(ProxyRequest request, bool wasServed);

    const std::map<std::string, std::uint16_t> hosts_;
    const std::optional<Credentials> credentials_;
    mutable std::mutex mutex_;
    std::vector<ProxyRequest> requests_; ///< guarded by mutex_
    std::unique_ptr<TcpServer> tcp_;     ///< last: its threads use all of the above
};

} // namespace mediaworker::test
