#include "Fetch.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QSslCertificate>
#include <QSslConfiguration>

namespace mediaworker::test {

Fetched fetch(const std::string& url, const FetchOptions& options) {
    QNetworkAccessManager manager;
    manager.setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
    manager.setProxy(options.proxy);
    QNetworkRequest request(QUrl(QString::fromStdString(url)));
    if (!options.authority.empty()) {
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setCaCertificates(
            QSslCertificate::fromPath(QString::fromStdString(options.authority), QSsl::Pem));
        request.setSslConfiguration(configuration);
    }
    QNetworkReply* reply = manager.get(request);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(),
            reply->readAll().toStdString(), reply->error()};
}

} // namespace mediaworker::test
