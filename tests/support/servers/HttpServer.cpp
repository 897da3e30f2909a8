#include "support/servers/HttpServer.h"

#include "support/servers/TlsTermination.h"
#include "support/servers/Transport.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <sstream>
#include <thread>

namespace mediaworker::test {
namespace {

using std::chrono::steady_clock;

bool isSameName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

HttpRequest parseRequest(const std::string& text) {
    HttpRequest request;
    std::istringstream in(text);
    std::string line;
    std::getline(in, line);
    std::istringstream(line) >> request.method >> request.target;
    while (std::getline(in, line) && line != "\r") {
        const auto colon = line.find(':');
        const auto value = line.find_first_not_of(' ', colon + 1);
        if (colon != std::string::npos && value != std::string::npos) {
            request.headers.emplace_back(line.substr(0, colon), line.substr(value, line.find('\r') - value));
        }
    }
    return request;
}

} // namespace

std::string HttpRequest::header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (isSameName(key, name)) {
            return value;
        }
    }
    return {};
}

HttpResponse::HttpResponse(Transport& transport, Exchange& exchange, std::mutex& exchangeMutex)
    : transport_(transport), exchange_(exchange), exchangeMutex_(exchangeMutex), request_(exchange.request) {}

void HttpResponse::status(int code, std::string reason) {
    code_ = code;
    reason_ = reason.empty() ? (code < 300 ? "OK" : code < 400 ? "Elsewhere" : "Error") : std::move(reason);
}

void HttpResponse::header(std::string name, std::string value) {
    headers_.emplace_back(std::move(name), std::move(value));
}

void HttpResponse::contentLength(std::size_t bytes) {
    hasLength_ = true;
    header("Content-Length", std::to_string(bytes));
}

bool HttpResponse::write(const void* data, std::size_t size) {
    if (isFinished_) {
        return false;
    }
    if (!transport_.send(data, size)) {
        isFinished_ = true;
        const std::lock_guard lock(exchangeMutex_);
        exchange_.clientLeft = true;
        return false;
    }
    return true;
}

bool HttpResponse::sendHeader() {
    if (headerSent_) {
        return !isFinished_;
    }
    headerSent_ = true;
    std::string text = "HTTP/1.1 " + std::to_string(code_) + " " + reason_ + "\r\n";
    if (!hasLength_ && framing_ == Framing::Chunked) {
        text += "Transfer-Encoding: chunked\r\n";
    }
    for (const auto& [name, value] : headers_) {
        text += name + ": " + value + "\r\n";
    }
    text += "Connection: close\r\n\r\n";
    return write(text.data(), text.size());
}

bool HttpResponse::send(std::span<const std::uint8_t> bytes) {
    if (!sendHeader()) {
        return false;
    }
    if (bytes.empty()) {
        return true; // an empty chunk would end the body
    }
    if (hasLength_ || framing_ == Framing::UntilClose) {
        if (!write(bytes.data(), bytes.size())) {
            return false;
        }
    } else {
        char size[24];
        const int length = std::snprintf(size, sizeof size, "%zx\r\n", bytes.size());
        std::vector<std::uint8_t> chunk(size, size + length);
        chunk.insert(chunk.end(), bytes.begin(), bytes.end());
        chunk.insert(chunk.end(), {'\r', '\n'});
        if (!write(chunk.data(), chunk.size())) {
            return false;
        }
    }
    bodyBytes_ += bytes.size();
    const std::lock_guard lock(exchangeMutex_);
    exchange_.sends.push_back({steady_clock::now(), bodyBytes_});
    return true;
}

bool HttpResponse::send(std::string_view text) {
    return send({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

bool HttpResponse::dribble(std::span<const std::uint8_t> bytes, std::size_t pieceBytes,
                           std::chrono::microseconds pause) {
    while (!bytes.empty()) {
        const std::size_t size = std::min(pieceBytes, bytes.size());
        if (!send(bytes.first(size)) || (pause.count() > 0 && !sleepUntil(steady_clock::now() + pause))) {
            return false;
        }
        bytes = bytes.subspan(size);
    }
    return true;
}

bool HttpResponse::sleepMs(std::int64_t ms) {
    return sleepUntil(steady_clock::now() + std::chrono::milliseconds(ms));
}

bool HttpResponse::sleepUntil(steady_clock::time_point when) {
    if (isFinished_) {
        return false;
    }
    if (sleepWatching(transport_.socket(), when)) {
        return true;
    }
    isFinished_ = true;
    const std::lock_guard lock(exchangeMutex_);
    exchange_.clientLeft = true;
    return false;
}

void HttpResponse::waitForClientToLeave() {
    while (sleepMs(3'600'000)) {
    }
}

bool HttpResponse::redirect(const std::string& url, int code) {
    status(code);
    header("Location", url);
    contentLength(0);
    return sendHeader();
}

bool HttpResponse::errorPage(int code, std::size_t bytes) {
    status(code);
    contentLength(bytes);
    return send(std::string(bytes, 'x'));
}

void HttpResponse::finish() {
    if (!sendHeader()) {
        return;
    }
    if (!hasLength_ && framing_ == Framing::Chunked && !write("0\r\n\r\n", 5)) {
        return;
    }
    isFinished_ = true;
    transport_.finish();
}

void HttpResponse::reset() {
    isFinished_ = true;
    transport_.reset();
}

HttpServer::HttpServer() : HttpServer(Options{}) {}

HttpServer::HttpServer(const Options& options)
    : options_(options),
      tls_(options.certificates != nullptr ? std::make_unique<TlsTermination>(*options.certificates)
                                           : nullptr),
      tcp_(std::make_unique<TcpServer>([this](int socket) { serve(socket); })),
      port_(tls_ ? tls_->portInFrontOf(tcp_->port()) : tcp_->port()) {}

HttpServer::~HttpServer() {
    stop();
}

void HttpServer::route(const std::string& path, Handler handler) {
    const std::lock_guard lock(mutex_);
    routes_[path] = std::move(handler);
}

std::string HttpServer::url(const std::string& path) const {
    const std::string host = tls_ ? "https://127.0.0.1:" : "http://127.0.0.1:";
    return host + std::to_string(port()) + path;
}

std::vector<Exchange> HttpServer::exchanges() const {
    const std::lock_guard lock(mutex_);
    std::vector<Exchange> result;
    for (const auto& exchange : exchanges_) {
        result.push_back(*exchange);
    }
    return result;
}

void HttpServer::stop() {
    tcp_->stop();
}

void HttpServer::serve(int socket) {
    if (options_.sendBufferBytes > 0) {
        setSendBufferBytes(socket, options_.sendBufferBytes);
    }
    const std::unique_ptr<Transport> transport = tls_ ? tls_->accept(socket) : plainTransport(socket);
    const std::string header = transport ? transport->receiveHeader() : std::string();
    if (header.empty()) {
        return;
    }
    Handler handler;
    Exchange* exchange = nullptr;
    {
        const std::lock_guard lock(mutex_);
        exchange = exchanges_.emplace_back(std::make_unique<Exchange>()).get();
        exchange->request = parseRequest(header);
        const auto route = routes_.find(exchange->request.path());
        if (route != routes_.end()) {
            handler = route->second;
        }
    }
    HttpResponse response(*transport, *exchange, mutex_);
    if (handler) {
        handler(response);
        response.finish();
    } else {
        response.errorPage(404, 9);
        response.finish();
    }
}

} // namespace mediaworker::test
