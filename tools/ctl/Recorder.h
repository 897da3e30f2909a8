#pragma once

#include "parent/WorkerProcess.h"
#include "tools/ctl/Arguments.h"
#include "tools/ctl/Console.h"
#include "tools/ctl/Outcome.h"
#include "tools/ctl/WorkerLog.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <optional>

namespace mediaworker::ctl {

/// Records a stream into an MP4 file through a worker and tells about it.
class Recorder : public QObject {
    Q_OBJECT

public:
    Recorder(ExportCommand command, Console& console);

    void start();
    /// The user wants it to end: the file is closed and kept. For the second time, at once.
    void interrupt();

Q_SIGNALS:
    /// `problem` is empty when there is a file. Everything has been reported. `isCutShort`: it is shorter
    /// than it was to be.
    void done(const QString& problem, bool isCutShort);

private:
    using Clock = std::chrono::steady_clock;

    void tick();
    void reportProgress();
    void onFinished(int exitCode, bool crashed);
    [[nodiscard]] QString takeResult(const WorkerEnd& worker);
    void finish();
    void onNotStarted();
    [[nodiscard]] QString remains(bool wasKilled);
    void giveUp(const QString& problem, parent::ExitCause cause);
    /// `cause`: where no worker tells it by its end.
    void end(const QString& problem, const std::optional<WorkerEnd>& worker,
             std::optional<parent::ExitCause> cause = std::nullopt);
    [[nodiscard]] std::chrono::milliseconds elapsed() const;

    const ExportCommand command_;
    Console& console_;
    WorkerLog log_;
    QString partial_; ///< empty: not made yet
    parent::WorkerProcess worker_;
    QTimer ticks_;
    QTimer patience_;
    QTimer endTimer_;

    Clock::time_point startedAt_{};
    int percent_ = 0;
    bool isInterrupted_ = false; ///< by the user
    bool isGivenUp_ = false;     ///< by the user, who does not wait for the file to be closed
    bool isStill_ = false;       ///< the stream: it was ended for that
    bool isKept_ = false;        ///< what there is of an export that failed
    bool isDone_ = false;
};

} // namespace mediaworker::ctl
