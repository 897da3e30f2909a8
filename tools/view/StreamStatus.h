#pragma once

#include "parent/PlaybackMonitor.h"

#include <QSize>
#include <QString>

#include <chrono>
#include <optional>

namespace mediaworker::view {

/// What there is to tell about one stream at one moment.
struct StreamStatus {
    parent::PlaybackState state = parent::PlaybackState::Idle;
    QString endWords = {};                                          ///< why it ended, without a full stop
    std::optional<std::chrono::milliseconds> untilNextAttempt = {}; ///< it is started again then
    QString soundProblem = {}; ///< why there is no sound, of a stream that has some
    QSize pictureSize = {};
    double framesPerSecond = 0;
    std::optional<qint64> positionMs = {};
    std::optional<qint64> absoluteTimeMs = {}; ///< since 1970, if the server counts so
    std::optional<qint64> delayMs = {};
    std::optional<qint64> behindMs = {}; ///< of a live stream: with the pauses
    bool isRecording = false;
};

// The same in words, for a status bar. Empty where there is nothing to say.

[[nodiscard]] QString stateText(const StreamStatus& status);
/// Why nothing is heard, while pictures come.
[[nodiscard]] QString soundText(const StreamStatus& status);
[[nodiscard]] QString sizeText(const StreamStatus& status);
[[nodiscard]] QString rateText(const StreamStatus& status);
/// The absolute time (UTC) where the stream has one, else the time stamp.
[[nodiscard]] QString positionText(const StreamStatus& status);
[[nodiscard]] QString delayText(const StreamStatus& status);

/// A live stream is so far behind that people want to know.
[[nodiscard]] bool isBehind(const StreamStatus& status);
/// "8 s behind".
[[nodiscard]] QString behindText(const StreamStatus& status);

/// One line below a picture of a grid.
[[nodiscard]] QString captionText(const QString& name, const StreamStatus& status);
/// What stands there behind the name.
[[nodiscard]] QString captionTail(const QString& name, const StreamStatus& status);

/// "0:05.2", "1:02:03.4"; tenths are cut off, not rounded, as on a clock.
[[nodiscard]] QString clockText(qint64 ms);

/// A short name for a URL: its host and last part, "cam1.example/live.flv"; the file's name of a local file.
/// User names and passwords never show.
[[nodiscard]] QString streamName(const QString& url);

/// The URL that a worker plays for what a user typed or dropped: addresses as they are, everything else
/// is the path of a local file. `folder` is what relative paths start from.
[[nodiscard]] QString streamUrl(const QString& text, const QString& folder);

} // namespace mediaworker::view
