#pragma once

#include "parent/WorkerProcess.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

namespace mediaworker::demo {

struct ExportOptions {
    QString url;
    int durationMs = 0; ///< a stream without an end goes on for ten seconds behind that
    QString file;
    QString program; ///< the worker; empty: as the library finds it
};

/// Records a stream into an MP4 file through a worker and tells about it on the terminal.
class Export : public QObject {
    Q_OBJECT

public:
    explicit Export(ExportOptions options);

    void start();

Q_SIGNALS:
    /// `exitStatus` is 0 when everything went as it should; what went wrong has been printed.
    void done(int exitStatus);

private:
    void showProgress();
    void onFinished(int exitCode, bool crashed);
    void end(const QString& problem);

    ExportOptions options_;
    parent::WorkerProcess worker_;
    QElapsedTimer clock_;
    QTimer progressTimer_;
    QTimer watchdog_;
    int percent_ = 0;
    bool isDone_ = false;
};

} // namespace mediaworker::demo
