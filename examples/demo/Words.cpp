#include "Words.h"

#include <QStringList>

#include <algorithm>

namespace mediaworker::demo {

QString wordsAboutTheEnd(const parent::WorkerProcess& worker, int exitCode, bool crashed) {
    constexpr int kLogLines = 3;
    const QStringList& log = worker.recentLog();
    return QStringLiteral("%1 (exit code %2)\n  its last words:\n    %3")
        .arg(exitReason(worker.mode(), exitCode, crashed))
        .arg(exitCode)
        .arg(log.mid(std::max(0, log.size() - kLogLines)).join(QStringLiteral("\n    ")));
}

} // namespace mediaworker::demo
