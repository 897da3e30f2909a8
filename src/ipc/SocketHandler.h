#pragma once

#include "ipc/Message.h"
#include "ipc/PacketReader.h"

#include <QLocalSocket>
#include <QMutex>
#include <QObject>
#include <QString>

#include <chrono>

namespace Corvane::Ipc {

/// The worker's link to its parent: a local socket that carries small typed packets both ways.
///
/// The handler may be moved to another thread after it was made; all work on the socket, and all signals,
/// then happen there. There is no reconnection.
class SocketHandler final : public QObject {
    Q_OBJECT

public:
    /// What may wait for a parent that does not read. Frame messages have 11 bytes: this is hours of them.
    static constexpr qint64 kMaxUnsentBytes = 4 << 20;

    /// Takes `socket` as its child.
    SocketHandler(QLocalSocket* socket, QObject* parent);
    /// Starts to connect to the server at once, and announces the worker's process id as soon as it has.
    /// Where the platform connects (or fails to) at once, that happens in here, before anybody can listen to
    /// the signals.
    SocketHandler(const QString& serverName, QObject* parent);

    /// From the handler's thread: writes the packet. False when the size does not match the data, the socket
    /// is not connected, the parent has stopped reading, or a write failed. From another thread: posts the
    /// packet to the handler's thread and returns true; the outcome of the write is not reported back.
    /// Thread-safe.
    bool send(const Message& message);
    /// A message without data. Thread-safe.
    bool send(quint8 type);
    /// Waits until the system has taken what was sent, or the time is over: where the link is a named pipe,
    /// writing goes on behind our back. On the handler's own thread only; its signals may be emitted
    /// meanwhile.
    void waitUntilWritten(std::chrono::milliseconds limit);
    /// On the handler's own thread only.
    [[nodiscard]] bool isConnected() const { return socket_->state() == QLocalSocket::ConnectedState; }

Q_SIGNALS:
    void disconnected();
    void error(const QString& text);
    void newMessage(const Corvane::Ipc::Message& message);

private:
    bool sendNow(const Message& message);
    /// Repeats whole writes of `bytes` until the counts sum up to its size. False on a negative count.
    bool writeAll(const char* bytes, qint64 size);
    void sendConnected();
    void onReadyRead();

    QLocalSocket* socket_; ///< a child of this object
    PacketReader reader_;  ///< handler's thread only
    QMutex sendMutex_;     ///< serialises writes to the socket
};

} // namespace Corvane::Ipc
