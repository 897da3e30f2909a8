#include "tools/ctl/Recorder.h"

#include "tools/files/PartialFile.h"
#include "tools/interruption/Interruption.h"

#include <QFile>
#include <QFileInfo>

#include <utility>

namespace mediaworker::ctl {

namespace {

using namespace std::chrono_literals;

using parent::ExitCause;

constexpr auto kEndWait = 5s;
// The index of a recording of days has a hundred megabytes, and disks are slow.
constexpr auto kCloseWait = 60s;

} // namespace

Recorder::Recorder(ExportCommand command, Console& console)
    : command_(std::move(command)), console_(console), log_(command_.log, console) {
    using parent::WorkerProcess;
    worker_.setProgram(command_.worker);
    connect(&worker_, &WorkerProcess::connected, this,
            [this](qint64 pid) { console_.report(Connected{pid}); });
    connect(&worker_, &WorkerProcess::progress, this, [this](int percent) {
        percent_ = percent;
        if (patience_.isActive()) {
            patience_.start();
        }
    });
    connect(&worker_, &WorkerProcess::soundUnavailable, this,
            [this](const QString& reason) { console_.report(SoundUnavailable{reason}); });
    connect(&worker_, &WorkerProcess::finished, this, &Recorder::onFinished);
    connect(&worker_, &WorkerProcess::logLine, this, [this](const QString& line) { log_.take(line); });
    connect(&worker_, &WorkerProcess::startFailed, this, &Recorder::onNotStarted);
    connect(&worker_, &WorkerProcess::connectTimedOut, this,
            [this] { giveUp(parent::notConnected().text, ExitCause::NotConnected); });
    connect(&ticks_, &QTimer::timeout, this, &Recorder::tick);
    patience_.setSingleShot(true);
    connect(&patience_, &QTimer::timeout, this, [this] {
        isStill_ = true;
        finish();
    });
    endTimer_.setSingleShot(true);
    connect(&endTimer_, &QTimer::timeout, this,
            [this] { giveUp(QStringLiteral("the worker does not end"), ExitCause::StoodStill); });
}

void Recorder::start() {
    if (QFileInfo(command_.file).isDir()) {
        end(QStringLiteral("%1 is a folder").arg(command_.file), std::nullopt, ExitCause::FileNotWritable);
        return;
    }
    if (!command_.mayReplace && QFileInfo::exists(command_.file)) {
        end(QStringLiteral("%1 exists").arg(command_.file), std::nullopt, ExitCause::FileNotWritable);
        return;
    }
    if (const QString problem = log_.open(); !problem.isEmpty()) {
        end(problem, std::nullopt, ExitCause::FileNotWritable);
        return;
    }
    const auto partial = makePartialFile(command_.file);
    if (!partial) {
        end(QStringLiteral("cannot write into %1").arg(QFileInfo(command_.file).absolutePath()), std::nullopt,
            ExitCause::FileNotWritable);
        return;
    }
    partial_ = *partial;
    startedAt_ = Clock::now();
    const parent::ExportJob job{.url = command_.url,
                                .durationMs = static_cast<int>(command_.duration.count()),
                                .outputPath = partial_,
                                .flv = command_.flv,
                                .sandbox = command_.isConfined};
    const Interruption::Shield shield;
    if (!worker_.start(job)) {
        onNotStarted();
        return;
    }
    ticks_.start(console_.progressInterval());
    if (command_.patience > 0ms) {
        patience_.start(command_.patience);
    }
}

void Recorder::onNotStarted() {
    QFile::remove(partial_);
    const parent::Problem why = worker_.startProblem().value_or(parent::Problem{});
    end(why.text, std::nullopt, why.cause);
}

void Recorder::interrupt() {
    if (isDone_) {
        return;
    }
    isGivenUp_ = std::exchange(isInterrupted_, true);
    if (isGivenUp_) {
        worker_.kill();
    } else {
        finish();
    }
}

/// The worker closes the file and ends.
void Recorder::finish() {
    ticks_.stop();
    patience_.stop();
    if (!worker_.isConnected()) {
        worker_.kill(); // nothing is recorded yet
    }
    worker_.finish();
    endTimer_.start(kCloseWait);
}

std::chrono::milliseconds Recorder::elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - startedAt_);
}

void Recorder::reportProgress() {
    const bool hasLength = command_.duration > 0ms;
    console_.report(ExportProgress{hasLength ? std::optional(percent_) : std::nullopt, elapsed()});
}

void Recorder::tick() {
    if (console_.isBroken()) {
        giveUp(QStringLiteral("nobody reads what is printed; the recording was removed"), ExitCause::Failed);
        return;
    }
    reportProgress();
}

void Recorder::onFinished(int exitCode, bool crashed) {
    const WorkerEnd worker{parent::WorkerMode::Export, exitCode, crashed, lastWords(worker_.recentLog()),
                           worker_.findings()};
    // A slot that ends the worker finds the file itself.
    if (!isDone_) {
        end(takeResult(worker), worker);
    }
}

/// Moves the file to its place, or removes what is of no use; gives what is wrong.
QString Recorder::takeResult(const WorkerEnd& worker) {
    // Another program may end with that code, too.
    const bool isComplete =
        !worker.crashed && worker.exitCode == 0 && problemOf(worker).cause != ExitCause::WorkerUnusable;
    if (isComplete) {
        const auto replacing = command_.mayReplace ? Replacing::Allowed : Replacing::Refused;
        return moveFile(partial_, command_.file, replacing)
                   ? QString()
                   : QStringLiteral("cannot write %1; the recording is %2").arg(command_.file, partial_);
    }
    const QString left = remains(worker.crashed && !isGivenUp_);
    if (isGivenUp_) {
        return QStringLiteral("given up; the file was not closed") + left;
    }
    if (isInterrupted_ && left.isEmpty()) {
        return QStringLiteral("interrupted before anything was recorded");
    }
    if (isStill_ && left.isEmpty()) {
        return QStringLiteral("the export stands still at %1 %, and nothing was recorded").arg(percent_);
    }
    return QStringLiteral("the export failed: ") + describe(worker) + left;
}

/// Keeps what is of use of an export that failed, and gives the words that name it.
QString Recorder::remains(bool wasKilled) {
    isKept_ = keepRemains(partial_, wasKilled);
    return isKept_ ? QStringLiteral("\n  what was recorded until then is ") + partial_ : QString();
}

void Recorder::giveUp(const QString& problem, ExitCause cause) {
    if (std::exchange(isDone_, true)) {
        return;
    }
    const QString described = describe(problem, worker_.recentLog());
    worker_.kill();
    worker_.waitForFinished(kEndWait); // it could write on
    isDone_ = false;
    if (console_.isBroken()) {
        QFile::remove(partial_);
        end(described, std::nullopt, cause);
    } else {
        end(described + remains(!isInterrupted_), std::nullopt, cause);
    }
}

void Recorder::end(const QString& problem, const std::optional<WorkerEnd>& worker,
                   std::optional<ExitCause> cause) {
    if (std::exchange(isDone_, true)) {
        return;
    }
    ticks_.stop();
    patience_.stop();
    endTimer_.stop();
    ExportSummary summary;
    summary.partialFile = isKept_ ? partial_ : QString();
    summary.asked = command_.duration;
    summary.elapsed = startedAt_ == Clock::time_point{} ? 0ms : elapsed();
    if (problem.isEmpty()) {
        reportProgress();
        summary.file = command_.file;
        summary.bytes = QFileInfo(command_.file).size();
        if (worker) {
            summary.recordedMs = worker->findings.recordedMs;
            summary.hasSound = worker->findings.hasRecordedSound;
            summary.soundUnavailable = worker->findings.soundUnavailable;
            summary.isCutShort = isCutShort(*worker, command_.duration, isStill_);
        }
    }
    console_.report(jobEnd(summary, problem, worker, cause));
    Q_EMIT done(problem, summary.isCutShort);
}

} // namespace mediaworker::ctl
