#pragma once

#include "parent/PlaybackMonitor.h"

#include <QByteArray>
#include <QSize>
#include <QString>

#include <chrono>
#include <optional>
#include <variant>

/// What is told about a job while it runs, as values, and the two forms that it is printed in.
namespace mediaworker::ctl {

struct Connected {
    qint64 pid = 0;
};

struct FirstPicture {
    std::chrono::milliseconds after{0}; ///< since the worker's start
    QSize size = {};
    qint64 positionMs = 0;
};

struct PlayProgress {
    parent::PlaybackState state = parent::PlaybackState::Playing;
    quint64 frames = 0;
    double framesPerSecond = 0;
    qint64 positionMs = 0;
    qint64 delayMs = 0;
    std::optional<qint64> absoluteTimeMs = {};
};

struct Snapshot {
    QString file;
    qint64 positionMs = 0;
};

/// The stream has sound that will not be heard, or recorded.
struct SoundUnavailable {
    QString reason;
};

/// The worker has ended, and another one is started after a while.
struct Reconnecting {
    QString reason;
    std::chrono::milliseconds delay{0};
    int attempt = 0; ///< the one that comes, counting from 1
};

struct ExportProgress {
    std::optional<int> percent = {}; ///< of the length asked for; empty: there is none
    std::chrono::milliseconds elapsed{0};
};

/// How the job went. What could not be measured is left out.
struct PlaySummary {
    quint64 frames = 0;
    QSize size = {};
    std::chrono::nanoseconds watched{0}; ///< from the first picture to the last
    std::optional<double> intervalMedianMs = {};
    std::optional<double> intervalLongestMs = {};
    qint64 delayMs = 0;
    int snapshots = 0;
};

struct ExportSummary {
    QString file; ///< empty: there is none
    qint64 bytes = 0;
    std::chrono::milliseconds elapsed{0};
    std::chrono::milliseconds asked{0};    ///< how long it was to be; zero: until the user stops it
    std::optional<qint64> recordedMs = {}; ///< how long it is
    bool hasSound = false;
    bool isCutShort = false;       ///< the stream broke off before that
    QString soundUnavailable = {}; ///< why it has none, where the stream has some
    QString partialFile = {};      ///< what is left of an export that failed; empty: nothing
};

using Summary = std::variant<PlaySummary, ExportSummary>;

struct Ended {
    Summary summary;
    QString problem = {};               ///< empty: the job was done
    std::optional<int> exitCode = {};   ///< the worker's; empty when it was killed or never ran
    QString reason = {};                ///< in words
    QString cause = {};                 ///< why, for programs: parent::exitCauseName()
    std::optional<int> httpStatus = {}; ///< of a response that was no success
    QString remark = {};                ///< worth a word even when the job was done
    QString networkError = {};          ///< by its name in QNetworkReply::NetworkError
};

using Event = std::variant<Connected, FirstPicture, PlayProgress, Snapshot, SoundUnavailable, Reconnecting,
                           ExportProgress, Ended>;

/// Is soon replaced by a newer one of its kind.
[[nodiscard]] bool isProgress(const Event& event);

enum class ProgressForm {
    Line, ///< stands by itself
    Bar   ///< drawn, where a person looks
};

/// For people, without a newline at the end; empty when there is nothing to say. Problems are not part of it.
[[nodiscard]] QString toText(const Event& event, ProgressForm form);

/// One JSON object, without a newline.
[[nodiscard]] QByteArray toJson(const Event& event);

} // namespace mediaworker::ctl
