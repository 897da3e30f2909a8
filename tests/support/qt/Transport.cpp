#include "support/qt/Transport.h"
#include "support/qt/TcpServer.h"
#include "support/qt/TestCertificates.h"

#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>

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

class TlsTransport final : public Transport {
public:
    /// Takes a duplicate, since QSslSocket closes what it is given.
    explicit TlsTransport(int socket) : original_(socket) { tls_.setSocketDescriptor(duplicate(socket)); }

    bool handshake(const TestCertificates& certificates) {
        tls_.setLocalCertificateChain(QSslCertificate::fromPath(
            QString::fromStdString(certificates.certificateFile().string()), QSsl::Pem));
        tls_.setPrivateKey(QString::fromStdString(certificates.keyFile().string()), QSsl::Ec, QSsl::Pem);
        tls_.startServerEncryption();
        return tls_.waitForEncrypted(10000);
    }

    std::string receiveHeader() override {
        QByteArray header;
        while (!header.endsWith("\r\n\r\n")) {
            char byte = 0;
            if (tls_.bytesAvailable() == 0 && !tls_.waitForReadyRead(10000)) {
                return {};
            }
            if (tls_.read(&byte, 1) == 1) {
                header.append(byte);
            }
        }
        return header.toStdString();
    }

    bool send(const void* data, std::size_t size) override {
        if (tls_.write(static_cast<const char*>(data), static_cast<qint64>(size)) < 0) {
            return false;
        }
        while (tls_.bytesToWrite() > 0 || tls_.encryptedBytesToWrite() > 0) {
            if (!tls_.waitForBytesWritten(100) && tls_.state() != QAbstractSocket::ConnectedState) {
                return false;
            }
        }
        return tls_.state() == QAbstractSocket::ConnectedState;
    }

    void finish() override {
        tls_.disconnectFromHost();
        if (tls_.state() != QAbstractSocket::UnconnectedState) {
            tls_.waitForDisconnected(1000);
        }
    }

    void reset() override {
        lingerForNoTime(original_);
        tls_.abort();
    }

    int socket() const noexcept override { return original_; }

private:
    int original_;
    QSslSocket tls_;
};

} // namespace

std::unique_ptr<Transport> makeTransport(int socket, const TestCertificates* certificates) {
    if (certificates == nullptr) {
        return std::make_unique<PlainTransport>(socket);
    }
    auto transport = std::make_unique<TlsTransport>(socket);
    return transport->handshake(*certificates) ? std::move(transport) : nullptr;
}

} // namespace mediaworker::test
