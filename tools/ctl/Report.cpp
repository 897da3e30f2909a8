#include "tools/ctl/Report.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

namespace mediaworker::ctl {

namespace {

double toSeconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration<double>(duration).count();
}

double toSeconds(qint64 ms) {
    return static_cast<double>(ms) / 1000;
}

QString fixed(double value, int decimals, int width = 0) {
    // What rounds to nothing has no sign: nobody reads "-0.00".
    const double least = 0.5 * std::pow(10.0, -decimals);
    return QStringLiteral("%1").arg(std::abs(value) < least ? 0.0 : value, width, 'f', decimals);
}

const char* word(parent::PlaybackState state) {
    switch (state) {
    case parent::PlaybackState::Idle:
        return "idle";
    case parent::PlaybackState::Connecting:
        return "connecting";
    case parent::PlaybackState::Buffering:
        return "buffering";
    case parent::PlaybackState::Playing:
        return "playing";
    case parent::PlaybackState::Paused:
        return "paused";
    case parent::PlaybackState::Ended:
        return "ended";
    }
    return "";
}

QString sizeText(QSize size) {
    return QStringLiteral("%1x%2").arg(size.width()).arg(size.height());
}

/// Pictures per second between the first and the last; empty for fewer than two.
std::optional<double> meanFps(const PlaySummary& summary) {
    if (summary.frames < 2 || summary.watched.count() <= 0) {
        return std::nullopt;
    }
    return static_cast<double>(summary.frames - 1) / toSeconds(summary.watched);
}

double rounded(double value, double step) {
    return static_cast<double>(std::llround(value / step)) * step;
}

struct Text {
    ProgressForm form;

    QString operator()(const Connected& event) const {
        return QStringLiteral("worker %1 is connected").arg(event.pid);
    }

    QString operator()(const FirstPicture& event) const {
        return QStringLiteral("first picture after %1 s").arg(fixed(toSeconds(event.after), 2));
    }

    QString operator()(const PlayProgress& event) const {
        QString text = QStringLiteral("  frames %1   fps %2   position %3 s   delay %4 s")
                           .arg(event.frames, 5)
                           .arg(fixed(event.framesPerSecond, 0, 3), fixed(toSeconds(event.positionMs), 2, 7),
                                fixed(toSeconds(event.delayMs), 2, 6));
        if (event.state != parent::PlaybackState::Playing) {
            text += QStringLiteral("   ") + QLatin1String(word(event.state));
        }
        return text;
    }

    QString operator()(const Snapshot& event) const { return QStringLiteral("saved %1").arg(event.file); }

    QString operator()(const ExportProgress& event) const {
        const QString after = fixed(toSeconds(event.elapsed), 1);
        if (!event.percent) {
            return QStringLiteral("  recording after %1 s").arg(after);
        }
        const QString bar =
            form == ProgressForm::Bar ? progressBar(*event.percent) : QStringLiteral("exported");
        return QStringLiteral("  %1 %2 %   after %3 s").arg(bar).arg(*event.percent, 3).arg(after);
    }

    QString operator()(const SoundUnavailable& event) const {
        return QStringLiteral("no sound: %1").arg(event.reason);
    }

    QString operator()(const Reconnecting& event) const {
        return QStringLiteral("%1; again in %2 s").arg(event.reason, fixed(toSeconds(event.delay), 1));
    }

    QString operator()(const Ended& event) const {
        const QString text =
            std::visit([](const auto& summary) { return summaryText(summary); }, event.summary);
        return event.problem.isEmpty() && !event.remark.isEmpty() ? text + u'\n' + event.remark : text;
    }

    static QString progressBar(int percent) {
        constexpr int kWidth = 40;
        const int done = std::clamp(percent, 0, 100) * kWidth / 100;
        return QStringLiteral("[%1%2]").arg(QString(done, u'='), QString(kWidth - done, u' '));
    }

    static QString summaryText(const PlaySummary& summary) {
        if (summary.frames == 0) {
            return {};
        }
        QString text = QStringLiteral("pictures: %1 of %2").arg(summary.frames).arg(sizeText(summary.size));
        if (const auto fps = meanFps(summary)) {
            text +=
                QStringLiteral(" in %1 s (%2 fps)").arg(fixed(toSeconds(summary.watched), 1), fixed(*fps, 1));
        }
        if (summary.intervalMedianMs && summary.intervalLongestMs) {
            text += QStringLiteral(", interval median %1 ms, longest %2 ms")
                        .arg(fixed(*summary.intervalMedianMs, 1), fixed(*summary.intervalLongestMs, 1));
        }
        return text;
    }

    static QString summaryText(const ExportSummary& summary) {
        if (summary.file.isEmpty()) {
            return {};
        }
        QString text = QStringLiteral("exported: %1 (%2 bytes").arg(summary.file).arg(summary.bytes);
        if (summary.recordedMs) {
            text += QStringLiteral(", %1 s").arg(fixed(toSeconds(*summary.recordedMs), 1));
        }
        if (summary.recordedMs && !summary.hasSound) {
            text += QStringLiteral(", without sound");
            text += summary.soundUnavailable.isEmpty() ? QString()
                                                       : QStringLiteral(": ") + summary.soundUnavailable;
        }
        text += u')';
        if (summary.isCutShort) {
            text +=
                summary.asked.count() > 0
                    ? QStringLiteral("\nthe file is complete, but shorter than the %1 s that were asked for")
                          .arg(fixed(toSeconds(summary.asked), 1))
                    : QStringLiteral("\nthe file is complete, but the stream ended before it was stopped");
        }
        return text;
    }
};

struct Json {
    QJsonObject operator()(const Connected& event) const {
        return {{QStringLiteral("event"), QStringLiteral("connected")}, {QStringLiteral("pid"), event.pid}};
    }

    QJsonObject operator()(const FirstPicture& event) const {
        return {{QStringLiteral("event"), QStringLiteral("firstPicture")},
                {QStringLiteral("afterMs"), static_cast<qint64>(event.after.count())},
                {QStringLiteral("width"), event.size.width()},
                {QStringLiteral("height"), event.size.height()},
                {QStringLiteral("positionMs"), event.positionMs}};
    }

    QJsonObject operator()(const PlayProgress& event) const {
        QJsonObject object{{QStringLiteral("event"), QStringLiteral("progress")},
                           {QStringLiteral("state"), QLatin1String(word(event.state))},
                           {QStringLiteral("frames"), static_cast<qint64>(event.frames)},
                           {QStringLiteral("fps"), event.framesPerSecond},
                           {QStringLiteral("positionMs"), event.positionMs},
                           {QStringLiteral("delayMs"), event.delayMs}};
        if (event.absoluteTimeMs) {
            object.insert(QStringLiteral("absoluteTimeMs"), *event.absoluteTimeMs);
        }
        return object;
    }

    QJsonObject operator()(const Snapshot& event) const {
        return {{QStringLiteral("event"), QStringLiteral("snapshot")},
                {QStringLiteral("file"), event.file},
                {QStringLiteral("positionMs"), event.positionMs}};
    }

    QJsonObject operator()(const SoundUnavailable& event) const {
        return {{QStringLiteral("event"), QStringLiteral("soundUnavailable")},
                {QStringLiteral("reason"), event.reason}};
    }

    QJsonObject operator()(const Reconnecting& event) const {
        return {{QStringLiteral("event"), QStringLiteral("reconnecting")},
                {QStringLiteral("reason"), event.reason},
                {QStringLiteral("afterMs"), static_cast<qint64>(event.delay.count())},
                {QStringLiteral("attempt"), event.attempt}};
    }

    QJsonObject operator()(const ExportProgress& event) const {
        QJsonObject object{{QStringLiteral("event"), QStringLiteral("progress")},
                           {QStringLiteral("elapsedMs"), static_cast<qint64>(event.elapsed.count())}};
        if (event.percent) {
            object.insert(QStringLiteral("percent"), *event.percent);
        }
        return object;
    }

    QJsonObject operator()(const Ended& event) const {
        QJsonObject object{{QStringLiteral("event"), QStringLiteral("ended")},
                           {QStringLiteral("ok"), event.problem.isEmpty()}};
        if (!event.problem.isEmpty()) {
            object.insert(QStringLiteral("problem"), event.problem);
        }
        if (event.exitCode) {
            object.insert(QStringLiteral("exitCode"), *event.exitCode);
        }
        if (!event.reason.isEmpty()) {
            object.insert(QStringLiteral("reason"), event.reason);
        }
        if (!event.cause.isEmpty()) {
            object.insert(QStringLiteral("cause"), event.cause);
        }
        if (event.httpStatus) {
            object.insert(QStringLiteral("httpStatus"), *event.httpStatus);
        }
        if (!event.networkError.isEmpty()) {
            object.insert(QStringLiteral("networkError"), event.networkError);
        }
        std::visit([&object](const auto& summary) { insert(object, summary); }, event.summary);
        return object;
    }

    static void insert(QJsonObject& object, const PlaySummary& summary) {
        object.insert(QStringLiteral("frames"), static_cast<qint64>(summary.frames));
        object.insert(QStringLiteral("snapshots"), summary.snapshots);
        if (summary.frames == 0) {
            return;
        }
        object.insert(QStringLiteral("width"), summary.size.width());
        object.insert(QStringLiteral("height"), summary.size.height());
        object.insert(QStringLiteral("seconds"), rounded(toSeconds(summary.watched), 0.001));
        object.insert(QStringLiteral("delayMs"), summary.delayMs);
        if (const auto fps = meanFps(summary)) {
            object.insert(QStringLiteral("fps"), rounded(*fps, 0.01));
        }
        if (summary.intervalMedianMs && summary.intervalLongestMs) {
            object.insert(QStringLiteral("intervalMedianMs"), *summary.intervalMedianMs);
            object.insert(QStringLiteral("intervalLongestMs"), *summary.intervalLongestMs);
        }
    }

    static void insert(QJsonObject& object, const ExportSummary& summary) {
        object.insert(QStringLiteral("elapsedMs"), static_cast<qint64>(summary.elapsed.count()));
        if (!summary.file.isEmpty()) {
            object.insert(QStringLiteral("file"), summary.file);
            object.insert(QStringLiteral("bytes"), summary.bytes);
            object.insert(QStringLiteral("isCutShort"), summary.isCutShort);
        }
        if (!summary.partialFile.isEmpty()) {
            object.insert(QStringLiteral("partialFile"), summary.partialFile);
        }
        if (summary.recordedMs) {
            object.insert(QStringLiteral("recordedMs"), *summary.recordedMs);
            QJsonArray tracks{QStringLiteral("video")};
            if (summary.hasSound) {
                tracks.append(QStringLiteral("sound"));
            }
            object.insert(QStringLiteral("tracks"), tracks);
            if (!summary.soundUnavailable.isEmpty()) {
                object.insert(QStringLiteral("soundUnavailable"), summary.soundUnavailable);
            }
            if (summary.asked.count() > 0) {
                const qint64 percent = *summary.recordedMs * 100 / summary.asked.count();
                object.insert(QStringLiteral("percentOfAsked"), std::min<qint64>(percent, 100));
            }
        }
    }
};

} // namespace

bool isProgress(const Event& event) {
    return std::holds_alternative<PlayProgress>(event) || std::holds_alternative<ExportProgress>(event);
}

QString toText(const Event& event, ProgressForm form) {
    return std::visit(Text{form}, event);
}

QByteArray toJson(const Event& event) {
    return QJsonDocument(std::visit(Json{}, event)).toJson(QJsonDocument::Compact);
}

} // namespace mediaworker::ctl
