#pragma once

#include <QNetworkProxy>
#include <QNetworkReply>

#include <string>

namespace mediaworker::test {

struct Fetched {
    int status = 0; ///< 0 when there was no answer
    std::string body;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
};

struct FetchOptions {
    std::string authority; ///< file of the certificate to trust instead of the system's
    QNetworkProxy proxy = QNetworkProxy(QNetworkProxy::NoProxy);
};

/// A GET with Qt's client, to its end.
Fetched fetch(const std::string& url, const FetchOptions& options = {});

} // namespace mediaworker::test
