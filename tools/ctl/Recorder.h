#pragma once

#include "parent/WorkerProcess.h"
#include "tools/ctl/Arguments.h"
#include "tools/ctl/Console.h"
#include "tools/ctl/Outcome.h"

#include <QObject>
#include <QTimer>

#include <chrono>

namespace mediaworker::ctl {

/// Records a stream into an MP4 file through a worker and tells about it.
class Recorder : public QObject {
    Q_OBJECT

public:
    Recorder(ExportCommand command, Console& console);

    void start();
    /// The user wants it to end; for the second time, at once.
    void interrupt();

Q_SIGNALS:
    /// `problem` is empty when the job was done. Everything has been reported.
    void done(const QString& problem);

private:
    using Clock = std::chrono::steady_clock;

    void tick();
    void reportProgress();
    void onFinished(int exitCode, bool crashed);
    [[nodiscard]] QString takeResult(const WorkerEnd& worker);
    void giveUp(const QString& problem);
    void end(const QString& problem, const std::optional<WorkerEnd>& worker);
    [[nodiscard]] std::chrono::milliseconds elapsed() const;

    const ExportCommand command_;
    const QString partial_;
    Console& console_;
    parent::WorkerProcess worker_;
    QTimer ticks_;
    QTimer patience_;
    QTimer endTimer_;

    Clock::time_point startedAt_{};
    int percent_ = 0;
    bool isCancelled_ = false;
    bool isDone_ = false;
};

} // namespace mediaworker::ctl
