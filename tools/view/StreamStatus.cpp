#include "tools/view/StreamStatus.h"

#include "parent/Address.h"
#include "parent/StateText.h"
#include "tools/files/FileUrl.h"

#include <QDateTime>
#include <QFileInfo>
#include <QUrl>

namespace mediaworker::view {

namespace {

using parent::PlaybackState;

// Outside of these a number is no date in milliseconds but some other unit: the server's business.
constexpr qint64 kEarliestDateMs = 631152000000; // 1990
constexpr qint64 kLatestDateMs = 4102444800000;  // 2100

// Less is what networks and servers do all the time.
constexpr qint64 kBehindMs = 2000;

bool showsPictures(PlaybackState state) {
    return state == PlaybackState::Playing || state == PlaybackState::Buffering;
}

} // namespace

QString stateText(const StreamStatus& status) {
    return parent::stateText(status.state, status.endWords, status.untilNextAttempt);
}

QString soundText(const StreamStatus& status) {
    const bool wouldBeHeard = showsPictures(status.state) || status.state == PlaybackState::Paused;
    return wouldBeHeard && !status.soundProblem.isEmpty() ? QStringLiteral("no sound: ") + status.soundProblem
                                                          : QString();
}

QString sizeText(const StreamStatus& status) {
    if (status.pictureSize.isEmpty()) {
        return {};
    }
    return QStringLiteral("%1 × %2").arg(status.pictureSize.width()).arg(status.pictureSize.height());
}

QString rateText(const StreamStatus& status) {
    return showsPictures(status.state) && status.positionMs
               ? QStringLiteral("%1 fps").arg(status.framesPerSecond, 0, 'f', 0)
               : QString();
}

QString positionText(const StreamStatus& status) {
    if (status.absoluteTimeMs) {
        const qint64 value = *status.absoluteTimeMs;
        return value >= kEarliestDateMs && value < kLatestDateMs
                   ? QDateTime::fromMSecsSinceEpoch(value, Qt::UTC)
                         .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))
                   : QString::number(value);
    }
    return status.positionMs ? clockText(*status.positionMs) : QString();
}

QString delayText(const StreamStatus& status) {
    if (!status.delayMs || !status.positionMs || status.state == PlaybackState::Ended) {
        return {};
    }
    const qint64 hundredths = *status.delayMs / 10; // whole ones: there is no "-0.00"
    return QStringLiteral("delay %1 s").arg(static_cast<double>(hundredths) / 100, 0, 'f', 2);
}

bool isBehind(const StreamStatus& status) {
    return status.behindMs && *status.behindMs >= kBehindMs && status.state != PlaybackState::Ended;
}

QString behindText(const StreamStatus& status) {
    return isBehind(status) ? QStringLiteral("%1 s behind").arg(*status.behindMs / 1000) : QString();
}

QString captionTail(const QString& name, const StreamStatus& status) {
    QString text = name.isEmpty() ? stateText(status) : QStringLiteral(" – ") + stateText(status);
    if (isBehind(status)) {
        text += QStringLiteral(", ") + behindText(status);
    }
    if (status.isRecording) {
        text += QStringLiteral(", ● recording");
    }
    for (const QString& part : {sizeText(status), rateText(status)}) {
        if (status.state == PlaybackState::Playing && !part.isEmpty()) {
            text += QStringLiteral(", ") + part;
        }
    }
    const QString sound = soundText(status);
    return sound.isEmpty() ? text : text + QStringLiteral(", ") + sound;
}

QString captionText(const QString& name, const StreamStatus& status) {
    return name + captionTail(name, status);
}

QString clockText(qint64 ms) {
    // Halves of the range are enough of a clock, and can be negated.
    const quint64 tenths = (ms < 0 ? 0 - static_cast<quint64>(ms) : static_cast<quint64>(ms)) / 100;
    const quint64 seconds = tenths / 10;
    const QString sign = ms < 0 ? QStringLiteral("-") : QString();
    const QString tail = QStringLiteral("%1.%2").arg(seconds % 60, 2, 10, QLatin1Char('0')).arg(tenths % 10);
    const quint64 minutes = seconds / 60;
    return minutes < 60 ? QStringLiteral("%1%2:%3").arg(sign).arg(minutes).arg(tail)
                        : QStringLiteral("%1%2:%3:%4")
                              .arg(sign)
                              .arg(minutes / 60)
                              .arg(minutes % 60, 2, 10, QLatin1Char('0'))
                              .arg(tail);
}

QString streamName(const QString& url) {
    if (isFileUrl(url)) {
        return QFileInfo(url).fileName();
    }
    const QUrl parsed(url);
    const QString file = parsed.fileName();
    return file.isEmpty() ? parsed.host() : parsed.host() + QLatin1Char('/') + file;
}

QString streamUrl(const QString& text, const QString& folder) {
    QString trimmed = text.trimmed();
    if (parent::isAddress(trimmed)) {
        return trimmed; // StreamView tells what cannot be played
    }
    if (trimmed.isEmpty()) {
        return {};
    }
    return fileUrl(trimmed, folder);
}

} // namespace mediaworker::view
