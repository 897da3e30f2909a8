#include "support/servers/Transport.h"
#include "support/servers/TcpServer.h"

#include <chrono>

namespace mediaworker::test {
namespace {

void waitForPeerToClose(int socket) {
    setReceiveTimeout(socket, std::chrono::seconds(1));
    char ignored[512];
    while (receiveSome(socket, ignored, sizeof ignored) > 0) {
    }
}

class PlainTransport final : public Transport {
public:
    explicit PlainTransport(int socket) : socket_(socket) {}

    std::string receiveHeader() override { return receiveHttpHeader(socket_); }
    bool send(const void* data, std::size_t size) override { return sendAll(socket_, data, size); }
    void finish() override {
        shutdownSending(socket_);
        waitForPeerToClose(socket_);
    }
    void reset() override { isReset_ = true; }
    int socket() const noexcept override { return socket_; }

    ~PlainTransport() override {
        if (isReset_) {
            lingerForNoTime(socket_);
        }
    }

private:
    int socket_;
    bool isReset_ = false;
};

} // namespace

std::unique_ptr<Transport> plainTransport(int socket) {
    return std::make_unique<PlainTransport>(socket);
}

} // namespace mediaworker::test
