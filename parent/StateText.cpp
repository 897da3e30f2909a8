#include "parent/StateText.h"

namespace mediaworker::parent {

QString stateText(PlaybackState state, const QString& problem,
                  const std::optional<std::chrono::milliseconds>& untilNextAttempt) {
    switch (state) {
    case PlaybackState::Idle:
        return QStringLiteral("no stream");
    case PlaybackState::Connecting:
        return QStringLiteral("connecting");
    case PlaybackState::Buffering:
        return QStringLiteral("buffering");
    case PlaybackState::Playing:
        return QStringLiteral("playing");
    case PlaybackState::Paused:
        return QStringLiteral("paused");
    case PlaybackState::Ended:
        if (untilNextAttempt) {
            const auto seconds = std::chrono::ceil<std::chrono::seconds>(*untilNextAttempt);
            return QStringLiteral("%1 – again in %2 s").arg(problem).arg(seconds.count());
        }
        return problem.isEmpty() ? QStringLiteral("ended") : QStringLiteral("ended: ") + problem;
    }
    return {};
}

QString overlayText(PlaybackState state, const QString& problem,
                    const std::optional<std::chrono::milliseconds>& untilNextAttempt) {
    if (state == PlaybackState::Idle || state == PlaybackState::Playing || state == PlaybackState::Paused) {
        return {};
    }
    QString text = stateText(state, problem, untilNextAttempt);
    text[0] = text[0].toUpper();
    return text;
}

} // namespace mediaworker::parent
