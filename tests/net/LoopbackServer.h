#pragma once

#include <QByteArray>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

class QAbstractSocket;

namespace mediaworker::test {

/// What a path answers: `head` is the status line and the headers, whole.
struct Answer {
    QByteArray head;
    qint64 bodyBytes = 0; ///< filled with bodyByte(0), bodyByte(1), ...
};

/// The byte at that offset of every body: a pattern whose period no buffer size shares.
[[nodiscard]] constexpr char bodyByte(qint64 offset) {
    return static_cast<char>(offset % 251);
}

/// "HTTP/1.1 <status>" with the headers and the length of the body.
[[nodiscard]] Answer answer(const QByteArray& status, qint64 bodyBytes, const QByteArray& headers = {});

struct TlsIdentity {
    QSslCertificate certificate;
    QSslKey key;
};

/// A key and a certificate for 127.0.0.1, signed by itself. Made by the openssl program.
[[nodiscard]] TlsIdentity makeTlsIdentity();

/// A tiny HTTP(S) server on loopback with threads of its own; one request for each connection.
class LoopbackServer {
public:
    explicit LoopbackServer(std::map<QByteArray, Answer> answers, const TlsIdentity* tls = nullptr);
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;
    ~LoopbackServer();

    [[nodiscard]] QString url(const QByteArray& path) const;
    /// Paths asked for so far.
    [[nodiscard]] std::vector<QByteArray> requests() const;
    /// The headers of the last request, whole.
    [[nodiscard]] QByteArray lastRequest() const;
    /// Blocks until the client has taken nothing for a while, or everything. Returns the bytes that it took
    /// of the body then; what the system's socket buffers hold counts as taken.
    qint64 waitUntilStuckOrSent();

private:
    void serve();
    void serveConnection(qintptr descriptor);
    void serveRequest(QAbstractSocket& socket);

    const std::map<QByteArray, Answer> answers_;
    const TlsIdentity* tls_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    // Guarded by mutex_.
    quint16 port_ = 0;
    bool settled_ = false;
    qint64 sent_ = 0;
    std::vector<QByteArray> requests_;
    QByteArray lastRequest_;

    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

} // namespace mediaworker::test
