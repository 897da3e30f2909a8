#pragma once

#include "parent/ExitReason.h"

#include <QString>

#include <optional>

namespace mediaworker::parent {

/// Why a worker ended, or never ran, as everybody tells it: viewer, control program, and whoever uses this
/// library. An ordinary end ("the server ended the stream") is told by the same means.
struct Problem {
    ExitCause cause = ExitCause::Unknown; ///< which of all
    QString text = {};                    ///< one sentence without a full stop, on one line
    std::optional<int> httpStatus = {};   ///< of a response that was no success
    QString networkError = {};            ///< by its name in QNetworkReply::NetworkError; empty: none

    /// The same in all versions: exitCauseName().
    [[nodiscard]] QString id() const { return exitCauseName(cause); }
};

/// Why a worker ended. `crashed`: it was killed or ended by a signal; the code means nothing then.
/// `findings`: what WorkerProcess gathered; without them, the exit code is all that there is to go by.
[[nodiscard]] Problem problemOf(WorkerMode mode, int exitCode, bool crashed, const WorkerFindings& findings);

// What no exit code tells.

/// The worker's program could not be run: `program` as it was asked for, `why` in the system's words. Without
/// a program: something else was missing before that.
[[nodiscard]] Problem startProblem(const QString& program, const QString& why);
/// It runs, and has not connected for as long as it may.
[[nodiscard]] Problem notConnected();
/// It says nothing any more.
[[nodiscard]] Problem stoodStill();
/// It closed its link, and goes on.
[[nodiscard]] Problem unlinked();

} // namespace mediaworker::parent
