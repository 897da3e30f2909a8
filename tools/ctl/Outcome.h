#pragma once

#include "parent/ExitReason.h"

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
};

/// The last lines of a worker's log that say anything: the reason is seldom the last line alone.
[[nodiscard]] QStringList lastWords(const QStringList& log);

/// Why it ended, the code, and its last words.
[[nodiscard]] QString describe(const WorkerEnd& end);

enum class PlayStop {
    None,        ///< the worker ended by itself
    Duration,    ///< it was told to, when all was watched that should be
    Interruption ///< it was told to, by the user
};

struct PlayEnd {
    WorkerEnd worker;
    PlayStop stop = PlayStop::None;
    bool isFile = false; ///< a local file, not a stream
    quint64 frames = 0;
    std::optional<std::chrono::milliseconds> wanted = {}; ///< how long to watch
    std::chrono::milliseconds watched{0};
};

/// Why the job was not done; empty when it was.
[[nodiscard]] QString whyNotDone(const PlayEnd& end);

} // namespace mediaworker::ctl
