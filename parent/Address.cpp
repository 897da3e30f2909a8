#include "parent/Address.h"

#include "parent/MaskedUrls.h"

#include <QRegularExpression>
#include <QUrl>

namespace mediaworker::parent {

namespace {

QString schemeOf(const QString& text) {
    static const QRegularExpression scheme(QStringLiteral("^\\s*([A-Za-z0-9][A-Za-z0-9+.-]*)://"));
    return scheme.match(text).captured(1).toLower();
}

} // namespace

bool isAddress(const QString& text) {
    return !schemeOf(text).isEmpty();
}

QString addressProblem(const QString& text) {
    const QString scheme = schemeOf(text);
    const bool isWeb = scheme == QLatin1String("http") || scheme == QLatin1String("https");
    const bool isKnown = scheme.isEmpty() || scheme == QLatin1String("file") ||
                         (isWeb && !QUrl(text.trimmed()).host().isEmpty());
    return isKnown
               ? QString()
               : QStringLiteral("cannot play %1: only http, https and files").arg(maskedUrls(text.trimmed()));
}

} // namespace mediaworker::parent
