#pragma once

#include <QNetworkReply>
#include <QString>

#include <string>

namespace CorvaneClient::Net {

/// How a response ended.
struct ResponseEnd {
    int status = 0;            ///< of HTTP; 0: none came
    QString reasonPhrase = {}; ///< as the server worded it
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QString errorText = {}; ///< Qt's
    /// The first thing that is wrong with the server's certificate, in Qt's words; empty: nothing is.
    QString certificateError = {};
};

/// The first status that is no success: the body that comes with it is no stream.
inline constexpr int kFirstFailingStatus = 300;

/// What went wrong, on one line of bounded length: "status 404 Not Found", or "network: ", Qt's name of the
/// error, which programs may compare, and its text. Empty when nothing did. A status counts before an error,
/// which only repeats it. What is wrong with a certificate stands behind "untrusted certificate: ". User
/// names and passwords of URLs are left out.
[[nodiscard]] std::string failureText(const ResponseEnd& end);

} // namespace CorvaneClient::Net
