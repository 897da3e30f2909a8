#pragma once

#include "net/ResponseEnd.h"

#include <QByteArray>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>

#include <functional>

namespace CorvaneClient::Net {

/// Fetches one HTTP(S) response, which may never end, and hands its body on as it arrives. No parsing, no
/// retry. Lives on one thread with an event loop; the callbacks run there.
class HTTPClient final : public QObject {
    Q_OBJECT

public:
    using OnData = std::function<void(const QByteArray&)>;
    using OnFinished = std::function<void()>;

    /// How much of a body may wait in the reply while the consumer is busy. Qt's default is no bound at all:
    /// a consumer that holds up the loop would let a fast archive server fill the memory.
    static constexpr qint64 kReadBufferBytes = 1 << 20;

    HTTPClient();
    ~HTTPClient() override = default;

    /// Starts the request. `onData` gets the body's bytes in order, and perhaps an empty array at the end,
    /// unless the status is 300 or above; `onFinished` is called once when the response has ended, for
    /// whatever reason.
    void get(const QString& url, OnData onData, OnFinished onFinished);

    /// How the response ended, from the call of `onFinished` on.
    [[nodiscard]] const ResponseEnd& responseEnd() const noexcept { return end_; }

private:
    void deliver(QNetworkReply& reply, const OnData& onData);

    qint64 bodyBytes_ = 0;     ///< handed on
    QString certificateError_; ///< of the present response, as Qt words it
    ResponseEnd end_;
    QNetworkAccessManager manager_;
};

} // namespace CorvaneClient::Net
