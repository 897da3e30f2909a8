#include "net/HTTPClient.h"

#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslError>
#include <QUrl>

#include <utility>

namespace CorvaneClient::Net {
namespace {

/// 0 when there is none: another scheme, or a connection that failed before the headers.
int statusOf(const QNetworkReply& reply) {
    return reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

/// `bodyBytes` were handed on.
ResponseEnd endOf(const QNetworkReply& reply, qint64 bodyBytes) {
    ResponseEnd end{.status = statusOf(reply),
                    .reasonPhrase = reply.attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString(),
                    .error = reply.error(),
                    .errorText = reply.errorString()};
    // Qt takes a body that breaks off for a whole one when the connection's end comes with its last bytes.
    const QVariant length = reply.header(QNetworkRequest::ContentLengthHeader);
    if (end.error == QNetworkReply::NoError && length.isValid() && bodyBytes < length.toLongLong()) {
        end.error = QNetworkReply::RemoteHostClosedError;
        end.errorText = QStringLiteral("Connection closed");
    }
    return end;
}

bool isRedirect(int status) {
    return status == 301 || status == 302 || status == 303 || status == 305 || status == 307 || status == 308;
}

} // namespace

HTTPClient::HTTPClient() {
    manager_.setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
}

void HTTPClient::get(const QString& url, OnData onData, OnFinished onFinished) {
    bodyBytes_ = 0;
    end_ = {};
    certificateError_.clear();
    QNetworkRequest request{QUrl(url, QUrl::TolerantMode)};
    request.setRawHeader("Accept", "*/*");
    // Otherwise Qt offers to unpack what comes, and does so without any bound: a megabyte becomes a gigabyte.
    // A stream of pictures has nothing to pack.
    request.setRawHeader("Accept-Encoding", "identity");
    QNetworkReply* reply = manager_.get(request);
    // From the first byte on: what a fast server has sent before a later bound takes effect is never held
    // back again.
    reply->setReadBufferSize(kReadBufferBytes);
    // Qt throws a redirect's body away as it comes but counts it as unread, so the bound would stop a
    // redirect with a large body before it is followed.
    connect(reply, &QNetworkReply::metaDataChanged, this,
            [reply] { reply->setReadBufferSize(isRedirect(statusOf(*reply)) ? 0 : kReadBufferBytes); });
    // Qt starts the request that a redirect leads to by a signal that the one before still hears until its
    // thread has deleted it, and where threads are slow that one is sent again.
    connect(reply, &QNetworkReply::redirected, this,
            [reply] { reply->disconnect(SIGNAL(startHttpRequest())); });
    connect(reply, &QNetworkReply::finished, this, [this, reply, onData, onFinished] {
        if (statusOf(*reply) < kFirstFailingStatus) {
            deliver(*reply, onData);
        }
        end_ = endOf(*reply, bodyBytes_);
        end_.certificateError = certificateError_;
        onFinished();
    });
    // The failure that follows does not say what is wrong.
    connect(reply, &QNetworkReply::sslErrors, this, [this](const QList<QSslError>& errors) {
        if (!errors.isEmpty()) {
            certificateError_ = errors.constFirst().errorString();
        }
    });
    connect(reply, &QIODevice::readyRead, this,
            [this, reply, onData = std::move(onData), onFinished = std::move(onFinished)] {
                const int status = statusOf(*reply);
                if (status < kFirstFailingStatus) {
                    deliver(*reply, onData);
                } else if (!isRedirect(status)) {
                    // Nobody reads this body, so one larger than the buffer would never finish. Its end is
                    // told now, and the reply left to itself: aborting it here makes Qt print complaints.
                    end_ = endOf(*reply, bodyBytes_);
                    const OnFinished finished = onFinished; // disconnecting destroys this function
                    reply->disconnect(this);
                    finished();
                }
            });
}

void HTTPClient::deliver(QNetworkReply& reply, const OnData& onData) {
    const QByteArray bytes = reply.readAll();
    bodyBytes_ += bytes.size();
    onData(bytes);
}

} // namespace CorvaneClient::Net
