#include "ipc/SocketHandler.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QMutexLocker>
#include <QThread>

namespace Corvane::Ipc {
namespace {

/// Room for several of the largest packets. A parent that writes faster than packets are taken is held up by
/// the system's socket buffer instead of filling this process's memory.
constexpr qint64 kReadBufferBytes = 1 << 20;

} // namespace

SocketHandler::SocketHandler(QLocalSocket* socket, QObject* parent) : QObject(parent), socket_(socket) {
    qRegisterMetaType<Message>();
    socket_->setParent(this);
    socket_->setReadBufferSize(kReadBufferBytes);
    connect(socket_, &QLocalSocket::readyRead, this, &SocketHandler::onReadyRead);
    connect(socket_, &QLocalSocket::errorOccurred, this, [this](QLocalSocket::LocalSocketError code) {
        // Only our own waitUntilWritten() can time out, and the link stands after that as before.
        if (code != QLocalSocket::SocketTimeoutError) {
            Q_EMIT error(socket_->errorString());
        }
    });
    connect(socket_, &QLocalSocket::disconnected, this, &SocketHandler::disconnected);
}

SocketHandler::SocketHandler(const QString& serverName, QObject* parent)
    : SocketHandler(new QLocalSocket, parent) {
    connect(socket_, &QLocalSocket::connected, this, &SocketHandler::sendConnected);
    socket_->connectToServer(serverName, QIODevice::ReadWrite);
}

bool SocketHandler::send(const Message& message) {
    if (QThread::currentThread() != thread()) {
        QMetaObject::invokeMethod(
            this, [this, message] { sendNow(message); }, Qt::QueuedConnection);
        return true;
    }
    return sendNow(message);
}

bool SocketHandler::send(quint8 type) {
    return send(Message{type, 0, {}});
}

void SocketHandler::waitUntilWritten(std::chrono::milliseconds limit) {
    const QDeadlineTimer deadline(limit);
    while (socket_->bytesToWrite() > 0 && !deadline.hasExpired()) {
        if (!socket_->waitForBytesWritten(static_cast<int>(deadline.remainingTime()))) {
            break;
        }
    }
}

bool SocketHandler::sendNow(const Message& message) {
    if (message.size != message.data.size()) {
        return false;
    }
    if (socket_->state() != QLocalSocket::ConnectedState) {
        return false;
    }
    const QMutexLocker lock(&sendMutex_);
    if (socket_->bytesToWrite() > kMaxUnsentBytes) {
        return false;
    }
    char header[PacketReader::kHeaderBytes];
    header[0] = static_cast<char>(message.type);
    qToLittleEndian(message.size, header + 1);
    if (!writeAll(header, PacketReader::kHeaderBytes)) {
        Q_EMIT error(QStringLiteral("Failed to send message header: %1").arg(socket_->errorString()));
        return false;
    }
    if (message.size != 0 && !writeAll(message.data.constData(), message.size)) {
        Q_EMIT error(QStringLiteral("Failed to send message data: %1").arg(socket_->errorString()));
        socket_->flush();
        return false;
    }
    socket_->flush();
    return true;
}

bool SocketHandler::writeAll(const char* bytes, qint64 size) {
    // A local socket takes the whole buffer in one call, so starting again from the first byte never shows.
    for (qint64 sum = 0; sum < size;) {
        const qint64 written = socket_->write(bytes, size);
        if (written < 0) {
            return false;
        }
        sum += written;
    }
    return true;
}

void SocketHandler::sendConnected() {
    const auto message =
        makeMessage(message_type::kConnected, static_cast<qint64>(QCoreApplication::applicationPid()));
    if (!send(message)) {
        Q_EMIT error(QStringLiteral("Failed to send \"connected\" message"));
    }
}

void SocketHandler::onReadyRead() {
    switch (reader_.read(*socket_)) {
    case PacketReader::Outcome::NeedMore:
        break;
    case PacketReader::Outcome::Complete:
        Q_EMIT newMessage(reader_.message());
        break;
    case PacketReader::Outcome::HeaderLost:
        Q_EMIT error(QStringLiteral("Failed to read packet header"));
        break;
    case PacketReader::Outcome::DataLost:
        Q_EMIT error(QStringLiteral("Failed to read packet data"));
        break;
    }
}

} // namespace Corvane::Ipc
