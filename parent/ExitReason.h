#pragma once

#include <QString>

namespace mediaworker::parent {

/// What a worker was started for: its exit codes depend on it.
enum class WorkerMode { Stream, LocalFile, Export };

/// The worker's exit code in words, without a full stop: "the stream ended". `crashed` is true when the
/// process was killed or ended by a signal; the code means nothing then.
[[nodiscard]] QString exitReason(WorkerMode mode, int exitCode, bool crashed);

} // namespace mediaworker::parent
