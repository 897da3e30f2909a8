#pragma once

#include "support/servers/TcpServer.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace mediaworker::test {

class TestCertificates;
class TlsTermination;
class Transport;

struct HttpRequest {
    std::string method;
    std::string target; ///< path and query
    std::vector<std::pair<std::string, std::string>> headers;

    /// The value of a header, whatever the case of its name; empty when it is missing.
    [[nodiscard]] std::string header(std::string_view name) const;
    /// The target without its query.
    [[nodiscard]] std::string path() const { return target.substr(0, target.find('?')); }
};

/// One piece that left the server: when the system had taken all of it.
struct SendRecord {
    std::chrono::steady_clock::time_point when;
    std::size_t bodyBytes = 0; ///< sent so far, this piece included
};

/// A request and what became of it.
struct Exchange {
    HttpRequest request;
    std::vector<SendRecord> sends; ///< one for each call of send(), in order
    bool clientLeft = false;       ///< seen gone before the response was finished
};

/// The response a handler writes, in its own time. Used on the connection's thread only. Once the client is
/// gone, everything returns false at once.
class HttpResponse {
public:
    enum class Framing { Chunked, UntilClose };

    HttpResponse(Transport& transport, Exchange& exchange, std::mutex& exchangeMutex);

    [[nodiscard]] const HttpRequest& request() const noexcept { return request_; }

    // Before the first send().
    void status(int code, std::string reason = {});
    void header(std::string name, std::string value);
    void framing(Framing framing) { framing_ = framing; }
    /// Announces the length; the handler may still send less, and then the connection is cut.
    void contentLength(std::size_t bytes);

    /// Sends the header if that has not been done. Blocks while the client does not read.
    bool send(std::span<const std::uint8_t> bytes);
    bool send(std::string_view text);
    /// Sends `pieceBytes` at a time with a pause after each.
    bool dribble(std::span<const std::uint8_t> bytes, std::size_t pieceBytes,
                 std::chrono::microseconds pause);
    bool sendHeader();

    bool sleepMs(std::int64_t ms);
    bool sleepUntil(std::chrono::steady_clock::time_point when);
    /// Until the client goes or the server stops.
    void waitForClientToLeave();

    /// A whole redirect response.
    bool redirect(const std::string& url, int code = 302);
    /// A whole response with a status and a body of that many bytes.
    bool errorPage(int code, std::size_t bytes);

    /// Ends the body. Called for the handler when it returns.
    void finish();
    /// Cuts the connection so that the client sees a reset.
    void reset();

private:
    bool write(const void* data, std::size_t size);

    Transport& transport_;
    Exchange& exchange_;
    std::mutex& exchangeMutex_;
    HttpRequest request_;
    int code_ = 200;
    std::string reason_ = "OK";
    std::vector<std::pair<std::string, std::string>> headers_;
    Framing framing_ = Framing::Chunked;
    bool hasLength_ = false;
    bool headerSent_ = false;
    bool isFinished_ = false;
    std::size_t bodyBytes_ = 0;
};

/// An HTTP/1.1 server on a free port of 127.0.0.1, one thread and one request per connection. Thread-safe.
class HttpServer {
public:
    using Handler = std::function<void(HttpResponse&)>;

    struct Options {
        const TestCertificates* certificates = nullptr; ///< set: HTTPS. Must outlive the server
        int sendBufferBytes = 0;                        ///< of the system; 0: its default
    };

    HttpServer();
    explicit HttpServer(const Options& options);
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;
    ~HttpServer();

    /// Requests for a path (the query does not count) go to the handler; others get 404.
    void route(const std::string& path, Handler handler);

    [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
    /// "http://127.0.0.1:PORT/path", or https. A number, since not every system knows "localhost".
    [[nodiscard]] std::string url(const std::string& path) const;

    /// All requests so far, in the order received.
    [[nodiscard]] std::vector<Exchange> exchanges() const;

    void stop();

private:
    void serve(int socket);

    Options options_;
    mutable std::mutex mutex_;
    // Guarded by mutex_; an exchange stays where it is once made.
    std::map<std::string, Handler> routes_;
    std::vector<std::unique_ptr<Exchange>> exchanges_;

    const std::unique_ptr<TlsTermination> tls_; ///< null: HTTP
    const std::unique_ptr<TcpServer> tcp_;      ///< its threads use all of the above
    const std::uint16_t port_;
};

} // namespace mediaworker::test
