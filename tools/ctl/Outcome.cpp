#include "tools/ctl/Outcome.h"

#include "tools/ctl/WorkerLog.h"

namespace mediaworker::ctl {

namespace {

// Exit codes of a worker whose input is at its end.
constexpr int kEndOfFile = 2;
constexpr int kEndOfStream = 3;
constexpr int kLinkClosed = 0;

double seconds(std::chrono::milliseconds duration) {
    return std::chrono::duration<double>(duration).count();
}

QString indented(const QStringList& lines) {
    const auto separator = QStringLiteral("\n    ");
    return separator + lines.join(separator);
}

/// What stands before the reason, unless that says it already.
QString noPictureWords(const WorkerEnd& end) {
    const parent::ExitCause cause = problemOf(end).cause;
    const bool saysSo = cause == parent::ExitCause::NoPicture || cause == parent::ExitCause::NoVideo ||
                        (cause == parent::ExitCause::EndOfStream && end.findings.isResponseOver &&
                         end.findings.hasShownPicture == false);
    return saysSo ? QString() : QStringLiteral("no picture was shown: ");
}

} // namespace

QStringList lastWords(const QStringList& log) {
    constexpr int kLines = 3;
    QStringList words;
    for (int i = log.size() - 1; i >= 0 && words.size() < kLines; --i) {
        if (!log[i].trimmed().isEmpty()) {
            words.prepend(plainLine(log[i]));
        }
    }
    return words;
}

parent::Problem problemOf(const WorkerEnd& end) {
    return parent::problemOf(end.mode, end.exitCode, end.crashed, end.findings);
}

QString describe(const WorkerEnd& end) {
    QString text = problemOf(end).text;
    if (!end.crashed) {
        text += QStringLiteral(" (exit code %1)").arg(end.exitCode);
    }
    if (!end.lastLines.isEmpty()) {
        text += QStringLiteral("\n  its last words:") + indented(end.lastLines);
    }
    return text;
}

QString describe(const QString& problem, const QStringList& log) {
    const QStringList words = lastWords(log);
    return words.isEmpty() ? problem
                           : problem + QStringLiteral("; the worker's last words:") + indented(words);
}

Ended jobEnd(const Summary& summary, const QString& problem, const std::optional<WorkerEnd>& worker,
             std::optional<parent::ExitCause> cause) {
    Ended ended{summary, problem};
    if (cause) {
        ended.cause = exitCauseName(*cause);
    }
    if (worker) {
        const parent::Problem why = problemOf(*worker);
        ended.exitCode = worker->crashed ? std::nullopt : std::optional(worker->exitCode);
        ended.reason = why.text;
        ended.cause = cause ? ended.cause : why.id();
        ended.httpStatus = worker->findings.httpStatus;
        ended.networkError = worker->findings.networkError;
        if (worker->findings.isResponseFailed() && why.cause != parent::ExitCause::LinkClosed) {
            ended.remark = QStringLiteral("the stream broke off: ") + responseFailure(worker->findings);
        }
    }
    return ended;
}

bool isCutShort(const WorkerEnd& worker, std::chrono::milliseconds asked, bool stoodStill) {
    return worker.findings.isCutShort(asked, stoodStill);
}

QString whyNotDone(const PlayEnd& end) {
    const bool isFile = end.worker.mode == parent::WorkerMode::LocalFile;
    const bool isAtEnd = !end.worker.crashed && end.worker.exitCode == (isFile ? kEndOfFile : kEndOfStream);
    if (end.frames == 0) {
        return end.stop == PlayStop::Interruption ? QStringLiteral("interrupted before the first picture")
                                                  : noPictureWords(end.worker) + describe(end.worker);
    }
    if (end.stop != PlayStop::None) {
        // It may have come to its end by itself in the same moment.
        const bool isOrderly = isAtEnd || (!end.worker.crashed && end.worker.exitCode == kLinkClosed);
        return isOrderly ? QString()
                         : QStringLiteral("the worker did not end as it should: ") + describe(end.worker);
    }
    if (end.wanted) {
        return QStringLiteral("the pictures ended after %1 of %2 seconds: ")
                   .arg(seconds(end.watched), 0, 'f', 1)
                   .arg(seconds(*end.wanted)) +
               describe(end.worker);
    }
    return isAtEnd ? QString() : QStringLiteral("the worker ended: ") + describe(end.worker);
}

} // namespace mediaworker::ctl
