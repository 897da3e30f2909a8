#pragma once

#include "parent/PlaybackMonitor.h"
#include "parent/StreamSupervisor.h"
#include "tools/ctl/Arguments.h"
#include "tools/ctl/Console.h"
#include "tools/ctl/Intervals.h"
#include "tools/ctl/Outcome.h"
#include "tools/ctl/PictureWriter.h"
#include "tools/ctl/SnapshotRule.h"
#include "tools/ctl/WorkerLog.h"
#include "tools/interruption/Interruption.h"

#include <QObject>
#include <QSize>
#include <QTimer>

#include <optional>

namespace mediaworker::ctl {

/// Plays one stream through a worker and tells about it.
class Player : public QObject {
    Q_OBJECT

public:
    Player(PlayCommand command, Console& console);

    void start();
    /// The user wants it to end; for the second time, at once.
    void interrupt();

Q_SIGNALS:
    /// `problem` is empty when the job was done. Everything has been reported. `isCutShort`: never.
    void done(const QString& problem, bool isCutShort);

private:
    using Clock = std::chrono::steady_clock;

    void onStarted(int attempt);
    void onWaiting(const QString& why, std::chrono::milliseconds delay);
    void onFrame(qint64 ptsMs);
    void takePicture(qint64 ptsMs);
    void onWritten(const QString& file, qint64 ptsMs, bool isGood);
    void onDurationOver();
    void tick();
    void stop(PlayStop why);
    void onFinished(int exitCode, bool crashed);
    void giveUp(const QString& problem, parent::ExitCause cause);
    /// `cause`: where no worker tells it by its end.
    void end(QString problem, const std::optional<WorkerEnd>& worker,
             std::optional<parent::ExitCause> cause = std::nullopt);
    /// Of all workers.
    [[nodiscard]] quint64 frames() const { return earlierFrames_ + monitor_.frames(); }
    [[nodiscard]] std::chrono::nanoseconds watched() const { return lastFrameAt_ - firstFrameAt_; }

    const PlayCommand command_;
    Console& console_;
    WorkerLog log_;
    parent::StreamSupervisor stream_;
    parent::WorkerProcess& worker_;   ///< the stream's
    parent::PlaybackMonitor monitor_; ///< of the present worker
    quint64 earlierFrames_ = 0;       ///< of those before it
    SnapshotRule snapshotRule_;
    Intervals intervals_;
    QTimer ticks_;
    QTimer durationTimer_;
    QTimer endTimer_;

    Clock::time_point lastSignAt_{}; ///< of life: the worker's start, or its newest picture
    Clock::time_point firstFrameAt_{};
    Clock::time_point lastFrameAt_{};
    QSize size_;
    bool isSizeNew_ = true;                      ///< another one than size_ may stand in the frame file
    std::optional<Interruption::Shield> shield_; ///< while a worker is started
    bool isDurationOver_ = false;
    int attempt_ = 0;
    int snapshots_ = 0;
    QString snapshotProblem_;
    PlayStop stop_ = PlayStop::None;
    bool isDone_ = false;

    PictureWriter writer_; ///< last: its signals find the above
};

} // namespace mediaworker::ctl
