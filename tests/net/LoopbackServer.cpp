#include "LoopbackServer.h"

#include <QFile>
#include <QProcess>
#include <QSslSocket>
#include <QTcpServer>
#include <QTemporaryDir>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace mediaworker::test {
namespace {

constexpr int kPollMs = 20;
/// A client that takes nothing for that long does not read.
constexpr int kStuckMs = 500;
constexpr qint64 kChunkBytes = 64 << 10;

/// Hands out the descriptors, so that each connection can be served by a thread of its own.
class DescriptorServer final : public QTcpServer {
public:
    std::vector<qintptr> descriptors;

protected:
    void incomingConnection(qintptr handle) override { descriptors.push_back(handle); }
};

} // namespace

Answer answer(const QByteArray& status, qint64 bodyBytes, const QByteArray& headers) {
    return {"HTTP/1.1 " + status + "\r\nContent-Length: " + QByteArray::number(bodyBytes) +
                "\r\nConnection: close\r\n" + headers + "\r\n",
            bodyBytes};
}

TlsIdentity makeTlsIdentity() {
    const QTemporaryDir folder;
    const QString key = folder.filePath(QStringLiteral("key.pem"));
    const QString certificate = folder.filePath(QStringLiteral("certificate.pem"));
    QProcess openssl;
    openssl.start(QStringLiteral("openssl"),
                  QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
                                 "-subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout %1 -out %2")
                      .arg(key, certificate)
                      .split(QLatin1Char(' ')));
    if (!openssl.waitForFinished() || openssl.exitCode() != 0) {
        throw std::runtime_error("openssl made no certificate");
    }
    QFile keyFile(key);
    QFile certificateFile(certificate);
    if (!keyFile.open(QIODevice::ReadOnly) || !certificateFile.open(QIODevice::ReadOnly)) {
        throw std::runtime_error("the certificate can't be read");
    }
    return {QSslCertificate(&certificateFile), QSslKey(&keyFile, QSsl::Ec)};
}

LoopbackServer::LoopbackServer(std::map<QByteArray, Answer> answers, const TlsIdentity* tls)
    : answers_(std::move(answers)), tls_(tls), thread_([this] { serve(); }) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return port_ != 0; });
}

LoopbackServer::~LoopbackServer() {
    stopping_ = true;
    thread_.join();
}

QString LoopbackServer::url(const QByteArray& path) const {
    return QStringLiteral("%1://127.0.0.1:%2%3")
        .arg(tls_ != nullptr ? QStringLiteral("https") : QStringLiteral("http"))
        .arg(port_)
        .arg(QString::fromLatin1(path));
}

std::vector<QByteArray> LoopbackServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

QByteArray LoopbackServer::lastRequest() const {
    const std::lock_guard lock(mutex_);
    return lastRequest_;
}

qint64 LoopbackServer::waitUntilStuckOrSent() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return settled_; });
    return sent_;
}

void LoopbackServer::serve() {
    DescriptorServer server;
    if (!server.listen(QHostAddress::LocalHost)) {
        std::terminate();
    }
    {
        const std::lock_guard lock(mutex_);
        port_ = server.serverPort();
        changed_.notify_all();
    }
    // A client may open connections that it does not use, so none of them may hold up another.
    std::vector<std::thread> connections;
    while (!stopping_) {
        server.waitForNewConnection(kPollMs);
        for (const qintptr descriptor : std::exchange(server.descriptors, {})) {
            connections.emplace_back([this, descriptor] { serveConnection(descriptor); });
        }
    }
    for (std::thread& connection : connections) {
        connection.join();
    }
}

void LoopbackServer::serveConnection(qintptr descriptor) {
    if (tls_ == nullptr) {
        QTcpSocket socket;
        socket.setSocketDescriptor(descriptor);
        serveRequest(socket);
        return;
    }
    QSslSocket socket;
    socket.setSocketDescriptor(descriptor);
    socket.setLocalCertificate(tls_->certificate);
    socket.setPrivateKey(tls_->key);
    socket.startServerEncryption();
    if (socket.waitForEncrypted()) {
        serveRequest(socket);
    }
}

void LoopbackServer::serveRequest(QAbstractSocket& socket) {
    QByteArray request;
    while (!request.contains("\r\n\r\n")) {
        if (!socket.waitForReadyRead(kPollMs) &&
            (stopping_ || socket.state() != QAbstractSocket::ConnectedState)) {
            return;
        }
        request += socket.readAll();
    }
    const QByteArray path = request.split(' ').value(1);
    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(path);
        lastRequest_ = request;
    }
    const Answer& reply = answers_.at(path);
    socket.write(reply.head);
    int idleMs = 0;
    for (qint64 offset = 0; offset < reply.bodyBytes || socket.bytesToWrite() > 0;) {
        if (socket.bytesToWrite() == 0) {
            QByteArray chunk(static_cast<int>(std::min(kChunkBytes, reply.bodyBytes - offset)), '\0');
            for (int i = 0; i < chunk.size(); ++i) {
                chunk[i] = bodyByte(offset + i);
            }
            offset += socket.write(chunk);
        }
        if (stopping_ || socket.state() != QAbstractSocket::ConnectedState) {
            return;
        }
        idleMs = socket.waitForBytesWritten(kPollMs) ? 0 : idleMs + kPollMs;
        const std::lock_guard lock(mutex_);
        sent_ = offset;
        settled_ = settled_ || idleMs >= kStuckMs;
        changed_.notify_all();
    }
    {
        const std::lock_guard lock(mutex_);
        settled_ = true;
        changed_.notify_all();
    }
    socket.disconnectFromHost();
    if (socket.state() != QAbstractSocket::UnconnectedState) {
        socket.waitForDisconnected(kStuckMs);
    }
}

} // namespace mediaworker::test
