#include "tools/ctl/Player.h"

#include <QCoreApplication>
#include <QDir>

#include <utility>

namespace mediaworker::ctl {

namespace {

using namespace std::chrono_literals;

constexpr auto kEndWait = 5s;
// A worker gives up by itself after 13 s without a picture; one that does not is broken.
constexpr auto kLongestSilence = 20s;

std::optional<double> inMilliseconds(std::optional<Intervals::Step> interval) {
    if (!interval) {
        return std::nullopt;
    }
    return std::chrono::duration<double, std::milli>(*interval).count();
}

} // namespace

Player::Player(PlayCommand command, Console& console)
    : command_(std::move(command)), console_(console), log_(command_.log, console), worker_(stream_.worker()),
      snapshotRule_(command_.snapshotInterval) {
    using parent::StreamSupervisor;
    using parent::WorkerProcess;
    worker_.setProgram(command_.worker);
    stream_.setPolicy({.isEnabled = command_.isReconnecting});
    if (command_.volumePercent) {
        stream_.setVolume(*command_.volumePercent);
    }
    connect(&stream_, &StreamSupervisor::aboutToStart, this, [this] { shield_.emplace(); });
    connect(&stream_, &StreamSupervisor::started, this, &Player::onStarted);
    connect(&stream_, &StreamSupervisor::waiting, this, [this](const QString& why, qint64 delayMs) {
        onWaiting(why, std::chrono::milliseconds(delayMs));
    });
    connect(&worker_, &WorkerProcess::connected, this, [this](qint64 pid) {
        monitor_.connected();
        console_.report(Connected{pid});
    });
    connect(&worker_, &WorkerProcess::frame, this, &Player::onFrame);
    connect(&worker_, &WorkerProcess::formatChanged, this, [this] { isSizeNew_ = true; });
    connect(&worker_, &WorkerProcess::absoluteTime, this,
            [this](qint64 value) { monitor_.absoluteTime(value); });
    connect(&worker_, &WorkerProcess::soundUnavailable, this,
            [this](const QString& reason) { console_.report(SoundUnavailable{reason}); });
    connect(&worker_, &WorkerProcess::finished, this, &Player::onFinished);
    connect(&worker_, &WorkerProcess::logLine, this, [this](const QString& line) { log_.take(line); });
    connect(&worker_, &WorkerProcess::startFailed, this, [this] {
        if (stream_.state() == parent::StreamState::Ended) {
            end(stream_.endWords(), std::nullopt, stream_.endProblem().cause);
        }
    });
    connect(&worker_, &WorkerProcess::connectTimedOut, this, [this] {
        if (!command_.isReconnecting) {
            giveUp(parent::notConnected().text, parent::ExitCause::NotConnected);
        }
    });
    connect(&writer_, &PictureWriter::written, this, &Player::onWritten);
    connect(&ticks_, &QTimer::timeout, this, &Player::tick);
    durationTimer_.setSingleShot(true);
    durationTimer_.setTimerType(Qt::PreciseTimer);
    connect(&durationTimer_, &QTimer::timeout, this, &Player::onDurationOver);
    endTimer_.setSingleShot(true);
    connect(&endTimer_, &QTimer::timeout, this,
            [this] { giveUp(QStringLiteral("the worker does not end"), parent::ExitCause::StoodStill); });
}

void Player::start() {
    if (!command_.snapshotFolder.isEmpty() && !QDir().mkpath(command_.snapshotFolder)) {
        end(QStringLiteral("cannot make the folder ") + command_.snapshotFolder, std::nullopt,
            parent::ExitCause::FileNotWritable);
        return;
    }
    if (const QString problem = log_.open(); !problem.isEmpty()) {
        end(problem, std::nullopt, parent::ExitCause::FileNotWritable);
        return;
    }
    const parent::StreamJob job{.url = command_.url,
                                .proxyUrl = command_.proxyUrl,
                                .proxyType = command_.proxyType,
                                .flv = command_.flv,
                                .lowLatency = command_.hasLowLatency,
                                .sync = command_.hasSync,
                                .sandbox = command_.isConfined};
    ticks_.start(console_.progressInterval());
    stream_.start(job);
    shield_.reset();
    if (stream_.state() == parent::StreamState::Ended) {
        end(stream_.endWords(), std::nullopt, stream_.endProblem().cause);
    }
}

void Player::onStarted(int attempt) {
    shield_.reset();
    lastSignAt_ = Clock::now();
    earlierFrames_ += monitor_.frames();
    monitor_.started(lastSignAt_);
    isSizeNew_ = true;
    attempt_ = attempt;
}

void Player::onWaiting(const QString& why, std::chrono::milliseconds delay) {
    shield_.reset();
    monitor_.ended();
    if (stop_ != PlayStop::None) {
        return;
    }
    console_.report(Reconnecting{why, delay, attempt_ + 1});
}

void Player::interrupt() {
    if (stop_ == PlayStop::Interruption) {
        worker_.kill();
        return;
    }
    stop(PlayStop::Interruption);
}

void Player::onFrame(qint64 ptsMs) {
    if (stop_ != PlayStop::None) {
        return;
    }
    const auto now = Clock::now();
    const bool isFirst = monitor_.frames() == 0;
    const bool isVeryFirst = frames() == 0;
    if (!isFirst) {
        intervals_.add(now - lastFrameAt_);
    }
    monitor_.frame(now, ptsMs);
    lastFrameAt_ = now;
    lastSignAt_ = now;
    if (isVeryFirst) {
        firstFrameAt_ = now;
        if (command_.duration) {
            durationTimer_.start(*command_.duration);
        }
    }
    takePicture(ptsMs);
    if (isFirst) {
        console_.report(FirstPicture{monitor_.timeToFirstPicture().value_or(0ms), size_, ptsMs});
    }
    if (isDurationOver_) {
        stop(PlayStop::Duration);
    }
}

void Player::takePicture(qint64 ptsMs) {
    const bool isWanted = !command_.snapshotFolder.isEmpty() && snapshotRule_.take(ptsMs);
    if (isWanted) {
        const QString file = QDir(command_.snapshotFolder).filePath(snapshotRule_.fileName());
        if (const auto picture = worker_.frames()->read()) {
            size_ = picture->size();
            writer_.write(*picture, file, ptsMs);
        } else {
            snapshotProblem_ = QStringLiteral("there is no picture to save as ") + file;
        }
    } else if (isSizeNew_) {
        worker_.frames()->withPicture(
            [this](const std::uint8_t* /*bgra*/, int width, int height) { size_ = QSize(width, height); });
    }
    isSizeNew_ = false;
}

void Player::onWritten(const QString& file, qint64 ptsMs, bool isGood) {
    if (isGood) {
        ++snapshots_;
        console_.report(Snapshot{file, ptsMs});
    } else {
        snapshotProblem_ = QStringLiteral("cannot save ") + file;
    }
}

// A stream that stands still now has to go on first.
void Player::onDurationOver() {
    if (monitor_.state(Clock::now()) == parent::PlaybackState::Playing) {
        stop(PlayStop::Duration);
    } else {
        isDurationOver_ = true;
    }
}

void Player::tick() {
    const auto now = Clock::now();
    if (console_.isBroken()) {
        giveUp(QStringLiteral("nobody reads what is printed"), parent::ExitCause::Failed);
        return;
    }
    if (!command_.isReconnecting && now - lastSignAt_ > kLongestSilence) {
        giveUp(QStringLiteral("no picture for %1 seconds, and the worker does not end")
                   .arg(std::chrono::seconds(kLongestSilence).count()),
               parent::ExitCause::StoodStill);
        return;
    }
    if (!snapshotProblem_.isEmpty()) {
        giveUp(snapshotProblem_, parent::ExitCause::FileNotWritable);
        return;
    }
    if (stop_ == PlayStop::None && monitor_.frames() > 0) {
        console_.report(PlayProgress{monitor_.state(now), frames(), monitor_.framesPerSecond(now),
                                     monitor_.positionMs().value_or(0), monitor_.delayMs(now),
                                     monitor_.absoluteTimeMs()});
    }
}

void Player::stop(PlayStop why) {
    if (isDone_) {
        return;
    }
    // The user's wish does not undo what was done already.
    if (stop_ == PlayStop::None) {
        stop_ = why;
    }
    durationTimer_.stop();
    ticks_.stop();
    if (stream_.state() == parent::StreamState::Waiting) {
        stream_.stop();
        end(frames() > 0 ? QString() : QStringLiteral("interrupted before the first picture"), std::nullopt,
            parent::ExitCause::LinkClosed);
        return;
    }
    stream_.setPolicy({.isEnabled = false});
    if (!worker_.isConnected()) {
        worker_.kill(); // it would not notice
    }
    worker_.disconnectLink();
    endTimer_.start(kEndWait);
}

void Player::onFinished(int exitCode, bool crashed) {
    if (stream_.state() == parent::StreamState::Waiting) {
        return;
    }
    monitor_.ended();
    if (stream_.hasKilledWorker()) {
        giveUp(stream_.endWords(), stream_.endProblem().cause);
        return;
    }
    PlayEnd result;
    result.worker = {worker_.mode(), exitCode, crashed, lastWords(worker_.recentLog()), worker_.findings()};
    result.stop = stop_;
    result.frames = frames();
    result.wanted = command_.duration;
    result.watched = std::chrono::duration_cast<std::chrono::milliseconds>(watched());
    end(whyNotDone(result), result.worker);
}

void Player::giveUp(const QString& problem, parent::ExitCause cause) {
    end(describe(problem, worker_.recentLog()), std::nullopt, cause);
}

void Player::end(QString problem, const std::optional<WorkerEnd>& worker,
                 std::optional<parent::ExitCause> cause) {
    if (std::exchange(isDone_, true)) {
        return;
    }
    ticks_.stop();
    durationTimer_.stop();
    endTimer_.stop();
    stream_.setPolicy({.isEnabled = false});
    worker_.kill();
    monitor_.ended();
    writer_.flush();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    if (problem.isEmpty()) {
        problem = snapshotProblem_;
    }

    PlaySummary summary;
    summary.frames = frames();
    summary.size = size_;
    summary.watched = watched();
    summary.intervalMedianMs = inMilliseconds(intervals_.median());
    summary.intervalLongestMs = inMilliseconds(intervals_.longest());
    summary.delayMs = monitor_.delayMs(Clock::now());
    summary.snapshots = snapshots_;
    console_.report(jobEnd(summary, problem, worker, cause));
    Q_EMIT done(problem, false);
}

} // namespace mediaworker::ctl
