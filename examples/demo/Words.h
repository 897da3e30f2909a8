#pragma once

#include "parent/WorkerProcess.h"

#include <QString>

namespace mediaworker::demo {

/// Why the worker ended, and the last lines of its log.
[[nodiscard]] QString wordsAboutTheEnd(const parent::WorkerProcess& worker, int exitCode, bool crashed);

} // namespace mediaworker::demo
