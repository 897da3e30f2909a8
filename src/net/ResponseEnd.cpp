#include "net/ResponseEnd.h"

#include <QMetaEnum>
#include <QRegularExpression>

#include <algorithm>

namespace CorvaneClient::Net {
namespace {

bool breaksLine(QChar c) {
    return !c.isPrint() || c.category() == QChar::Separator_Line ||
           c.category() == QChar::Separator_Paragraph;
}

/// Both texts may be the server's: what it chose must not become a line of its own, nor move a cursor.
QString asWords(QString text) {
    static const QRegularExpression userInfo(QStringLiteral("//[^/\\s]*@"));
    constexpr int kMostCharacters = 200;
    text.replace(userInfo, QStringLiteral("//"));
    text.truncate(kMostCharacters);
    std::replace_if(text.begin(), text.end(), breaksLine, QLatin1Char('?'));
    return text.trimmed();
}

QString nameOf(QNetworkReply::NetworkError error) {
    const char* const key = QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(error);
    return key != nullptr ? QLatin1String(key) : QString::number(static_cast<int>(error));
}

} // namespace

std::string failureText(const ResponseEnd& end) {
    QString text;
    if (end.status >= kFirstFailingStatus) {
        text = QStringLiteral("status %1 %2").arg(end.status).arg(asWords(end.reasonPhrase));
    } else if (end.error != QNetworkReply::NoError) {
        const bool isUntrusted =
            end.error == QNetworkReply::SslHandshakeFailedError && !end.certificateError.isEmpty();
        const QString words =
            isUntrusted ? end.errorText + QStringLiteral(": untrusted certificate: ") + end.certificateError
                        : end.errorText;
        text = QStringLiteral("network: %1: %2").arg(nameOf(end.error), asWords(words));
    }
    return text.trimmed().toStdString();
}

} // namespace CorvaneClient::Net
