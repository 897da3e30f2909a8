#pragma once

#include "parent/Problem.h"
#include "tools/ctl/Report.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

/// Whether the job was done.
namespace mediaworker::ctl {

/// How a worker ended.
struct WorkerEnd {
    parent::WorkerMode mode = parent::WorkerMode::Stream;
    int exitCode = 0;
    bool crashed = false;
    QStringList lastLines = {}; ///< of its log, newest last
    parent::WorkerFindings findings = {};
};

/// The last lines of a worker's log that say anything: the reason is seldom the last line alone.
[[nodiscard]] QStringList lastWords(const QStringList& log);

/// Why it ended, the code, and its last words.
[[nodiscard]] QString describe(const WorkerEnd& end);

/// Why, as everybody tells it.
[[nodiscard]] parent::Problem problemOf(const WorkerEnd& end);

/// A problem with a worker that did not end by itself, and the last words of its log.
[[nodiscard]] QString describe(const QString& problem, const QStringList& log);

/// What is told at the end of a job. `worker`: how it ended, if it did by itself. `cause` tells programs why
/// the job was not done where no worker did.
[[nodiscard]] Ended jobEnd(const Summary& summary, const QString& problem,
                           const std::optional<WorkerEnd>& worker,
                           std::optional<parent::ExitCause> cause = std::nullopt);

/// A complete file is shorter than it was to be, since the connection was lost or the stream stood still. One
/// that the server ended is as long as the stream. `asked`: zero: until the user stops it.
[[nodiscard]] bool isCutShort(const WorkerEnd& worker, std::chrono::milliseconds asked, bool stoodStill);

enum class PlayStop {
    None,        ///< the worker ended by itself
    Duration,    ///< it was told to, when all was watched that should be
    Interruption ///< it was told to, by the user
};

struct PlayEnd {
    WorkerEnd worker;
    PlayStop stop = PlayStop::None;
    quint64 frames = 0;
    std::optional<std::chrono::milliseconds> wanted = {}; ///< how long to watch
    std::chrono::milliseconds watched{0};
};

/// Why the job was not done; empty when it was.
[[nodiscard]] QString whyNotDone(const PlayEnd& end);

} // namespace mediaworker::ctl
