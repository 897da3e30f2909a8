#pragma once

#include "parent/WorkerProcess.h"

#include <QElapsedTimer>
#include <QObject>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace mediaworker::demo {

struct SessionOptions {
    QString url;
    int seconds = 8;                                  ///< to watch, from the first picture
    QString picturesFolder;                           ///< where snapshots go
    QString snapshotName = QStringLiteral("picture"); ///< what their files' names begin with
    int snapshots = 3;
    QString program; ///< the worker; empty: as the library finds it
    bool hasSound = false;
    /// Milliseconds that the camera has filmed so far, where that is known: the delay is measured against it,
    /// and the number in each picture checked.
    std::function<std::optional<std::int64_t>()> filmedMs;
    std::function<int(std::int64_t)> frameNumberAt;
};

/// Watches one stream through a worker and tells about it on the terminal.
class Session : public QObject {
    Q_OBJECT

public:
    explicit Session(SessionOptions options);

    void start();

Q_SIGNALS:
    /// `exitStatus` is 0 when everything went as it should; what went wrong has been printed.
    void done(int exitStatus);

private:
    struct Shown {
        qint64 atNs;
        qint64 ptsMs;
    };

    void onFrame(qint64 ptsMs);
    void checkPicture(const std::uint8_t* bgra, int width, int height, qint64 ptsMs);
    void saveSnapshot(qint64 ptsMs);
    void printProgress();
    void onFinished(int exitCode, bool crashed);
    void end(const QString& problem);
    [[nodiscard]] QString summary() const;
    [[nodiscard]] QString whatIsWrong(int exitCode, bool crashed) const;
    [[nodiscard]] std::optional<qint64> delayMs() const;

    SessionOptions options_;
    parent::WorkerProcess worker_;
    QElapsedTimer clock_;
    QTimer progressTimer_;
    QTimer endTimer_;
    QTimer watchdog_;

    std::vector<Shown> shown_;
    QSize size_;
    QStringList snapshots_;
    QStringList problems_;
    std::vector<qint64> delays_;
    int unreadable_ = 0; ///< pictures that were torn or not the one announced
    bool isEnding_ = false;
    bool isDone_ = false;
};

} // namespace mediaworker::demo
