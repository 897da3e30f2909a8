#include "tools/view/Recording.h"

#include "tools/files/PartialFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <utility>

namespace mediaworker::view {

namespace {

using namespace std::chrono_literals;
using parent::WorkerProcess;

constexpr auto kEndPatience = 2s;
// The index of a recording of days has a hundred megabytes, and disks are slow.
constexpr auto kCloseWait = 60s;
// Whoever destroys a recording that runs does not wait for a slow disk.
constexpr auto kLastWait = 5s;
constexpr int kMaxWords = 300; // of a log line

/// What a complete file lacks.
QString shortcomings(const parent::WorkerFindings& findings) {
    QStringList words;
    if (findings.isResponseFailed()) {
        words << QStringLiteral("the stream broke off: ") + parent::responseFailure(findings);
    }
    if (!findings.soundUnavailable.isEmpty()) {
        words << QStringLiteral("it has no sound: ") + findings.soundUnavailable;
    }
    return words.join(QStringLiteral("; "));
}

} // namespace

Recording::Recording(RecordingOrder order, QObject* parent) : QObject(parent), order_(std::move(order)) {
    worker_.setProgram(order_.workerProgram);
    connect(&worker_, &WorkerProcess::progress, this, [this](int percent) {
        percent_ = percent;
        Q_EMIT changed();
    });
    connect(&worker_, &WorkerProcess::finished, this, &Recording::onFinished);
    connect(&worker_, &WorkerProcess::startFailed, this, [this] {
        QFile::remove(partialFile_);
        end(exportEndText(ExportEnd::Failed, {}, worker_.startProblem().value_or(parent::Problem{}).text));
    });
    connect(&worker_, &WorkerProcess::connectTimedOut, &worker_, &WorkerProcess::kill);
    closing_.setSingleShot(true);
    closing_.setInterval(kCloseWait);
    connect(&closing_, &QTimer::timeout, this, [this] {
        isGivenUp_ = true;
        worker_.kill();
    });
}

Recording::~Recording() {
    if (isRunning()) {
        finish();
        worker_.waitForFinished(kLastWait);
    }
    worker_.disconnect(this);
}

void Recording::start() {
    state_ = State::Running;
    startedAt_ = Clock::now();
    const auto partial = makePartialFile(order_.file);
    if (!partial) {
        end(tr("Cannot write into %1.").arg(QDir::toNativeSeparators(QFileInfo(order_.file).absolutePath())));
        return;
    }
    partialFile_ = *partial;
    text_ = tr("Recording …");
    const bool isStarted =
        worker_.start(parent::ExportJob{.url = order_.url,
                                        .durationMs = static_cast<int>(order_.length.count()),
                                        .outputPath = QFileInfo(partialFile_).absoluteFilePath(),
                                        .proxyUrl = order_.proxyUrl,
                                        .proxyType = order_.proxyType,
                                        .flv = order_.flv,
                                        .sandbox = order_.isConfined});
    if (!isStarted) {
        QFile::remove(partialFile_);
        end(exportEndText(ExportEnd::Failed, {}, worker_.errorString()));
        return;
    }
    Q_EMIT changed();
}

void Recording::finish() {
    if (state_ != State::Running) {
        return;
    }
    state_ = State::Finishing;
    text_ = tr("Finishing …");
    if (!worker_.isConnected()) {
        worker_.kill(); // nothing is recorded yet
    }
    worker_.finish();
    closing_.start();
    Q_EMIT changed();
}

void Recording::cancel() {
    if (!isRunning()) {
        return;
    }
    isCancelled_ = true;
    if (!worker_.isConnected()) {
        worker_.kill(); // it would not hear of it, and record on
    }
    worker_.disconnectLink();
    if (!worker_.waitForFinished(kEndPatience)) {
        worker_.kill();
        worker_.waitForFinished(kEndPatience);
    }
}

std::chrono::milliseconds Recording::elapsed() const {
    if (state_ == State::New) {
        return 0ms;
    }
    const auto until = isRunning() ? Clock::now() : endedAt_;
    return std::chrono::duration_cast<std::chrono::milliseconds>(until - startedAt_);
}

std::optional<std::chrono::milliseconds> Recording::recorded() const {
    const auto ms = worker_.findings().recordedMs;
    return isSaved_ && ms ? std::optional(std::chrono::milliseconds(*ms)) : std::nullopt;
}

std::optional<int> Recording::percent() const {
    return order_.length > 0ms ? std::optional(percent_) : std::nullopt;
}

void Recording::onFinished(int exitCode, bool crashed) {
    if (isCancelled_) {
        QFile::remove(partialFile_);
        end(exportEndText(ExportEnd::Cancelled, {}, {}));
        return;
    }
    // Another program may end with that code, too.
    if (!crashed && exitCode == 0 &&
        worker_.problem(exitCode, crashed).cause != parent::ExitCause::WorkerUnusable) {
        takeFile();
        return;
    }
    const bool isLeft = keepRemains(partialFile_, crashed);
    if (state_ == State::Finishing && !isLeft) {
        end(exportEndText(ExportEnd::Empty, {}, {}));
        return;
    }
    QString why =
        isGivenUp_ ? tr("the file was not closed in time") : worker_.problem(exitCode, crashed).text;
    if (!worker_.recentLog().isEmpty()) {
        why += tr(" (its last words: %1)").arg(worker_.recentLog().last().left(kMaxWords));
    }
    end(exportEndText(ExportEnd::Failed, isLeft ? QDir::toNativeSeparators(partialFile_) : QString(), why));
}

/// Gives the complete file its name.
void Recording::takeFile() {
    const auto replacing = order_.mayReplace ? Replacing::Allowed : Replacing::Refused;
    isSaved_ = moveFile(partialFile_, order_.file, replacing);
    if (!isSaved_) {
        end(exportEndText(ExportEnd::NotSaved, QDir::toNativeSeparators(partialFile_), {}));
        return;
    }
    const parent::WorkerFindings& findings = worker_.findings();
    if (!findings.isCutShort(order_.length, false)) {
        percent_ = 100;
    }
    end(exportEndText(ExportEnd::Complete, QDir::toNativeSeparators(order_.file), shortcomings(findings)));
}

void Recording::end(const QString& text) {
    state_ = State::Ended;
    endedAt_ = Clock::now();
    closing_.stop();
    text_ = text;
    Q_EMIT changed();
    Q_EMIT ended();
}

} // namespace mediaworker::view
