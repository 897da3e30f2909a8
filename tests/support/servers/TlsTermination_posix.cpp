#include "support/servers/Socket.h"
#include "support/servers/TestCertificates.h"
#include "support/servers/TlsTermination.h"
#include "support/servers/Transport.h"

#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>

namespace mediaworker::test {
namespace {

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

struct TlsTermination::State {
    const TestCertificates& certificates;
};

TlsTermination::TlsTermination(const TestCertificates& certificates)
    : state_(std::make_unique<State>(State{certificates})) {}

TlsTermination::~TlsTermination() = default;

std::uint16_t TlsTermination::portInFrontOf(std::uint16_t serverPort) {
    return serverPort;
}

std::unique_ptr<Transport> TlsTermination::accept(int socket) const {
    auto transport = std::make_unique<TlsTransport>(socket);
    return transport->handshake(state_->certificates) ? std::move(transport) : nullptr;
}

} // namespace mediaworker::test
