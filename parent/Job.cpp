#include "parent/Job.h"

#include <QUrl>

namespace mediaworker::parent {

namespace {

QString flvOption(FlvReading reading) {
    return reading == FlvReading::Strict ? QStringLiteral("flv=strict") : QStringLiteral("flv=standard");
}

QString sandboxOption(bool isConfined) {
    return isConfined ? QStringLiteral(",sandbox=on") : QStringLiteral(",sandbox=off");
}

} // namespace

QString optionsOf(const StreamJob& job) {
    return flvOption(job.flv) +
           (job.lowLatency ? QStringLiteral(",buffering=off") : QStringLiteral(",buffering=on")) +
           (job.sync ? QStringLiteral(",sync=on") : QStringLiteral(",sync=off")) + sandboxOption(job.sandbox);
}

QString optionsOf(const ExportJob& job) {
    return flvOption(job.flv) +
           (job.exactLength ? QStringLiteral(",length=exact") : QStringLiteral(",length=expected")) +
           sandboxOption(job.sandbox) +
           (job.crashSafe ? QStringLiteral(",mp4=safe") : QStringLiteral(",mp4=plain"));
}

QMap<QString, QString> proxyVariables(const ExportJob& job) {
    if (job.proxyUrl.isEmpty()) {
        return {};
    }
    // The kind is the type's to say, as in a worker's arguments.
    QUrl url(job.proxyUrl);
    url.setScheme(job.proxyType == QLatin1String("socks5") ? QStringLiteral("socks5")
                                                           : QStringLiteral("http"));
    const QString value = QString::fromLatin1(url.toEncoded());
    return {{QStringLiteral("http_proxy"), value},
            {QStringLiteral("https_proxy"), value},
            {QStringLiteral("no_proxy"), QString()}};
}

} // namespace mediaworker::parent
