#include "support/servers/ProxyServer.h"

#include <QByteArray>

#include <sstream>
#include <string_view>
#include <utility>

namespace mediaworker::test {
namespace {

/// Copies in both directions until one side ends.
void relay(int a, int b) {
    std::vector<char> buffer(65536);
    const auto pass = [&buffer](int from, int to) {
        const std::ptrdiff_t received = receiveSome(from, buffer.data(), buffer.size());
        return received > 0 && sendAll(to, buffer.data(), static_cast<std::size_t>(received));
    };
    while (true) {
        const auto [fromA, fromB] = waitForEither(a, b);
        if ((!fromA && !fromB) || (fromA && !pass(a, b)) || (fromB && !pass(b, a))) {
            return;
        }
    }
}

bool sendText(int socket, std::string_view text) {
    return sendAll(socket, text.data(), text.size());
}

/// "host:port" into a request.
void setTarget(ProxyRequest& request, const std::string& authority, std::uint16_t defaultPort) {
    const auto colon = authority.rfind(':');
    request.host = authority.substr(0, colon);
    request.port = colon == std::string::npos
                       ? defaultPort
                       : static_cast<std::uint16_t>(std::stoul(authority.substr(colon + 1)));
}

std::optional<Credentials> basicCredentials(const std::string& header) {
    constexpr std::string_view kName = "Proxy-Authorization: Basic ";
    const auto begin = header.find(kName);
    if (begin == std::string::npos) {
        return std::nullopt;
    }
    const auto end = header.find('\r', begin);
    const std::string coded = header.substr(begin + kName.size(), end - begin - kName.size());
    const std::string plain = QByteArray::fromBase64(QByteArray::fromStdString(coded)).toStdString();
    const auto colon = plain.find(':');
    return Credentials{plain.substr(0, colon), colon == std::string::npos ? "" : plain.substr(colon + 1)};
}

std::optional<std::string> receiveCounted(int socket) {
    std::uint8_t length = 0;
    if (!receiveAll(socket, &length, 1)) {
        return std::nullopt;
    }
    std::string text(length, '\0');
    return receiveAll(socket, text.data(), text.size()) ? std::optional(text) : std::nullopt;
}

} // namespace

ProxyServer::ProxyServer(Kind kind, std::map<std::string, std::uint16_t> hosts,
                         std::optional<Credentials> credentials)
    : hosts_(std::move(hosts)), credentials_(std::move(credentials)),
      tcp_(std::make_unique<TcpServer>([this, kind](int socket) {
          if (kind == Kind::Http) {
              serveHttp(socket);
          } else {
              serveSocks5(socket);
          }
      })) {}

ProxyServer::~ProxyServer() {
    tcp_->stop();
}

std::uint16_t ProxyServer::port() const noexcept {
    return tcp_->port();
}

std::string ProxyServer::url() const {
    const std::string who = credentials_ ? credentials_->user + ":" + credentials_->password + "@" : "";
    return "http://" + who + "127.0.0.1:" + std::to_string(port());
}

std::vector<ProxyRequest> ProxyServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

void ProxyServer::record(ProxyRequest request, bool wasServed) {
    request.wasServed = wasServed;
    const std::lock_guard lock(mutex_);
    requests_.push_back(std::move(request));
}

Socket ProxyServer::open(const ProxyRequest& request) {
    const auto known = hosts_.find(request.host);
    return known != hosts_.end() ? connectToLoopback(known->second) : Socket();
}

void ProxyServer::serveHttp(int socket) {
    while (true) {
        const std::string header = receiveHttpHeader(socket);
        if (header.empty()) {
            return;
        }
        ProxyRequest request;
        std::string target;
        std::istringstream(header) >> request.method >> target;
        request.credentials = basicCredentials(header);
        std::string path;
        if (request.method == "CONNECT") {
            setTarget(request, target, 443);
        } else {
            const auto host = target.find("://") + 3;
            const auto slash = target.find('/', host);
            setTarget(request, target.substr(host, slash - host), 80);
            path = slash == std::string::npos ? "/" : target.substr(slash);
        }
        if (credentials_ && request.credentials != credentials_) {
            record(request, false);
            if (!sendText(socket, "HTTP/1.1 407 Who are you\r\nProxy-Authenticate: Basic realm=\"test\"\r\n"
                                  "Content-Length: 0\r\n\r\n")) {
                return;
            }
            continue; // the client comes again, on the same connection
        }
        const Socket server = open(request);
        record(request, server.get() >= 0);
        if (server.get() < 0) {
            static_cast<void>(sendText(socket, "HTTP/1.1 502 Host not known\r\nContent-Length: 0\r\n\r\n"));
            return;
        }
        const bool begun =
            request.method == "CONNECT"
                ? sendText(socket, "HTTP/1.1 200 Connected\r\n\r\n")
                : sendText(server.get(), request.method + " " + path + header.substr(header.find(" HTTP/")));
        if (begun) {
            relay(socket, server.get());
        }
        return;
    }
}

std::optional<ProxyRequest> ProxyServer::readSocks5Request(int socket) {
    constexpr std::uint8_t kVersion = 5;
    constexpr std::uint8_t kNoAuthentication = 0;
    constexpr std::uint8_t kUserAndPassword = 2;
    constexpr std::uint8_t kNoneAcceptable = 0xFF;
    std::uint8_t version = 0;
    if (!receiveAll(socket, &version, 1) || version != kVersion) {
        return std::nullopt;
    }
    const auto methods = receiveCounted(socket);
    const std::uint8_t wanted = credentials_ ? kUserAndPassword : kNoAuthentication;
    const bool isOffered = methods && methods->find(static_cast<char>(wanted)) != std::string::npos;
    const std::uint8_t choice[2] = {kVersion, isOffered ? wanted : kNoneAcceptable};
    if (!sendAll(socket, choice, sizeof choice) || !isOffered) {
        return std::nullopt;
    }
    ProxyRequest request;
    request.method = "SOCKS5";
    if (credentials_) {
        std::uint8_t subnegotiation = 0;
        if (!receiveAll(socket, &subnegotiation, 1)) {
            return std::nullopt;
        }
        const auto user = receiveCounted(socket);
        const auto password = receiveCounted(socket);
        if (!user || !password) {
            return std::nullopt;
        }
        request.credentials = Credentials{*user, *password};
        const bool isRight = request.credentials == credentials_;
        const std::uint8_t answer[2] = {1, static_cast<std::uint8_t>(isRight ? 0 : 1)};
        if (!sendAll(socket, answer, sizeof answer) || !isRight) {
            record(request, false);
            return std::nullopt;
        }
    }
    std::uint8_t head[4]; // VER, CMD, RSV, ATYP
    if (!receiveAll(socket, head, sizeof head) || head[1] != 1) {
        return std::nullopt;
    }
    if (head[3] == 3) {
        const auto name = receiveCounted(socket);
        if (!name) {
            return std::nullopt;
        }
        request.host = *name;
    } else if (head[3] == 1) {
        std::uint8_t address[4];
        if (!receiveAll(socket, address, sizeof address)) {
            return std::nullopt;
        }
        for (const std::uint8_t byte : address) {
            request.host += (request.host.empty() ? "" : ".") + std::to_string(byte);
        }
    } else {
        return std::nullopt;
    }
    std::uint8_t port[2];
    if (!receiveAll(socket, port, sizeof port)) {
        return std::nullopt;
    }
    request.port = static_cast<std::uint16_t>(port[0] << 8 | port[1]);
    return request;
}

void ProxyServer::serveSocks5(int socket) {
    const auto request = readSocks5Request(socket);
    if (!request) {
        return;
    }
    const Socket server = open(*request);
    record(*request, server.get() >= 0);
    constexpr std::uint8_t kHostUnreachable = 4;
    const std::uint8_t status = server.get() >= 0 ? 0 : kHostUnreachable;
    const std::uint8_t answer[10] = {5, status, 0, 1, 127, 0, 0, 1, 0, 0};
    if (sendAll(socket, answer, sizeof answer) && server.get() >= 0) {
        relay(socket, server.get());
    }
}

} // namespace mediaworker::test
