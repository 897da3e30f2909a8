#include "Export.h"

#include "Terminal.h"
#include "Words.h"

#include <QFile>
#include <QProcess>

#include <utility>

namespace mediaworker::demo {

namespace {

// The worker goes on for ten seconds of the stream behind the duration; the rest is for the connection.
constexpr int kSlackMs = 10000 + 15000;
constexpr int kProbeMs = 10000;

/// What the file holds, by a program that is not ours: a line for each stream and one for the file. Empty
/// when it cannot be read.
QStringList probe(const QString& file) {
    QProcess ffprobe;
    ffprobe.start(
        QStringLiteral("ffprobe"),
        {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
         QStringLiteral("stream=codec_name,width,height,sample_rate,nb_frames:format=duration,size"),
         QStringLiteral("-of"), QStringLiteral("compact"), file});
    if (!ffprobe.waitForFinished(kProbeMs) || ffprobe.exitStatus() != QProcess::NormalExit ||
        ffprobe.exitCode() != 0) {
        return {};
    }
    const QString text = QString::fromUtf8(ffprobe.readAllStandardOutput());
    return text.split(u'\n', Qt::SkipEmptyParts);
}

} // namespace

Export::Export(ExportOptions options) : options_(std::move(options)) {
    worker_.setProgram(options_.program);
    connect(&worker_, &parent::WorkerProcess::progress, this, [this](int percent) {
        percent_ = percent;
        if (percent == 100) {
            showProgress();
        }
    });
    connect(&worker_, &parent::WorkerProcess::finished, this, &Export::onFinished);
    connect(&worker_, &parent::WorkerProcess::startFailed, this,
            [this](const QString& why) { end(QStringLiteral("the worker cannot be started: ") + why); });
    connect(&worker_, &parent::WorkerProcess::connectTimedOut, this,
            [this] { end(QStringLiteral("the worker does not connect")); });
    connect(&progressTimer_, &QTimer::timeout, this, &Export::showProgress);
    watchdog_.setSingleShot(true);
    connect(&watchdog_, &QTimer::timeout, this,
            [this] { end(QStringLiteral("the export does not come to its end")); });
}

void Export::start() {
    clock_.start();
    QFile::remove(options_.file); // an older one must not pass for the new one
    parent::ExportJob job;
    job.url = options_.url;
    job.durationMs = options_.durationMs;
    job.outputPath = options_.file;
    if (!worker_.start(job)) {
        end(worker_.errorString());
        return;
    }
    progressTimer_.start(terminal::progressIntervalMs());
    watchdog_.start(options_.durationMs + kSlackMs);
}

void Export::showProgress() {
    terminal::showProgress(QStringLiteral("exported %1 %   after %2 s")
                               .arg(percent_, 3)
                               .arg(static_cast<double>(clock_.elapsed()) / 1000, 0, 'f', 1));
}

void Export::onFinished(int exitCode, bool crashed) {
    if (crashed || exitCode != 0) {
        end(QStringLiteral("the export ended: ") + wordsAboutTheEnd(worker_, exitCode, crashed));
        return;
    }
    const QStringList contents = probe(options_.file);
    if (contents.isEmpty()) {
        end(QStringLiteral("ffprobe cannot read ") + options_.file);
        return;
    }
    showProgress();
    terminal::printLine(QStringLiteral("exported: ") + options_.file);
    for (const QString& line : contents) {
        terminal::printLine(QStringLiteral("  ffprobe: ") + line);
    }
    end({});
}

void Export::end(const QString& problem) {
    if (std::exchange(isDone_, true)) {
        return;
    }
    progressTimer_.stop();
    watchdog_.stop();
    worker_.kill();
    if (!problem.isEmpty()) {
        terminal::printLine(QStringLiteral("FAILED: ") + problem);
    }
    Q_EMIT done(problem.isEmpty() ? 0 : 1);
}

} // namespace mediaworker::demo
