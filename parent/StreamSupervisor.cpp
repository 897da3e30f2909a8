#include "parent/StreamSupervisor.h"

#include <QRandomGenerator>
#include <QSignalBlocker>

#include <algorithm>
#include <utility>

namespace mediaworker::parent {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

// A worker ends within milliseconds of closing its link.
constexpr milliseconds kUnlinkedPatience = 2s;
constexpr milliseconds kKillWait = 5s;
// Beyond its own limit: for starting, and for a machine that is busy.
constexpr milliseconds kSilenceMargin = 5s;

/// By the user.
Problem stopped() {
    return {.cause = ExitCause::LinkClosed, .text = QStringLiteral("stopped")};
}

std::chrono::steady_clock::time_point now() {
    return std::chrono::steady_clock::now();
}

} // namespace

// The worker's own rule.
bool isLive(const QString& url) {
    return url.startsWith(QLatin1String("http")) && !url.contains(QLatin1String("archive"));
}

// The worker's own rule, for the first picture: the longest of its time-outs.
milliseconds longestFrameWait(const QString& url) {
    if (!url.startsWith(QLatin1String("http"))) {
        return 1s;
    }
    const milliseconds wait = url.contains(QLatin1String("archive")) ? 10s : 5s;
    return url.startsWith(QLatin1String("https")) ? wait + 3s : wait;
}

StreamSupervisor::StreamSupervisor(QObject* parent) : QObject(parent) {
    connect(&worker_, &WorkerProcess::connected, this, &StreamSupervisor::onSign);
    connect(&worker_, &WorkerProcess::frame, this, [this] {
        lastPictureAt_ = now();
        if (!std::exchange(hasPicture_, true)) {
            firstPictureAt_ = lastPictureAt_;
            shown_.reset();
        }
        onSign();
    });
    connect(&worker_, &WorkerProcess::finished, this, &StreamSupervisor::onFinished);
    connect(&worker_, &WorkerProcess::startFailed, this,
            [this] { onEnd(worker_.startProblem().value_or(Problem{})); });
    connect(&worker_, &WorkerProcess::connectTimedOut, this, [this] { endWorker(notConnected()); });
    connect(&worker_, &WorkerProcess::linkClosed, &unlinked_, qOverload<>(&QTimer::start));
    unlinked_.setSingleShot(true);
    unlinked_.setInterval(kUnlinkedPatience);
    connect(&unlinked_, &QTimer::timeout, this, [this] { endWorker(unlinked()); });
    silence_.setSingleShot(true);
    connect(&silence_, &QTimer::timeout, this, [this] { endWorker(stoodStill()); });
    nextAttempt_.setSingleShot(true);
    connect(&nextAttempt_, &QTimer::timeout, this, &StreamSupervisor::attemptNow);
}

StreamSupervisor::~StreamSupervisor() {
    worker_.disconnect(this);
    worker_.disconnect(&unlinked_);
}

void StreamSupervisor::start(const StreamJob& job) {
    job_ = job;
    shown_.reset();
    hasPicture_ = false; // another stream's
    retry();
}

void StreamSupervisor::retry() {
    if (job_.url.isEmpty()) {
        return;
    }
    rule_.reset();
    attempt_ = 0;
    attemptNow();
}

void StreamSupervisor::attemptNow() {
    nextAttempt_.stop();
    unlinked_.stop();
    silence_.stop();
    if (worker_.isRunning()) {
        // Nobody wants to hear of its end.
        const QSignalBlocker blocker(worker_);
        worker_.kill();
        worker_.waitForFinished(kKillWait);
    }
    if (std::exchange(hasPicture_, false)) {
        shown_ = worker_.takeFrames();
    }
    hasKilledWorker_ = false;
    stopReason_.reset();
    end_ = {};
    state_ = StreamState::Running;
    ++attempt_;
    Q_EMIT aboutToStart();
    if (!worker_.start(job_)) {
        onEnd(worker_.startProblem().value_or(Problem{}));
        return;
    }
    if (!worker_.isRunning()) {
        return; // where the system tells at once that it cannot be run: startFailed() was heard
    }
    if (volumePercent_) {
        worker_.setVolume(*volumePercent_);
    }
    if (isPaused_) {
        worker_.pause();
    }
    Q_EMIT started(attempt_);
}

void StreamSupervisor::onSign() {
    if (isPaused_ || state_ != StreamState::Running) {
        silence_.stop();
    } else {
        silence_.start(longestFrameWait(job_.url) + kSilenceMargin);
    }
}

void StreamSupervisor::stop() {
    nextAttempt_.stop();
    if (worker_.isRunning()) {
        silence_.stop();
        stopReason_ = stopped();
        if (!worker_.isConnected()) {
            worker_.kill(); // it would not hear of it, and play on
        }
        worker_.disconnectLink();
        unlinked_.start();
    } else if (state_ == StreamState::Waiting) {
        onEnd(stopped());
    }
}

void StreamSupervisor::endWorker(const Problem& why) {
    if (!stopReason_) {
        stopReason_ = why;
    }
    hasKilledWorker_ = true;
    worker_.kill();
}

void StreamSupervisor::onFinished(int exitCode, bool crashed) {
    onEnd(stopReason_ ? *stopReason_ : worker_.problem(exitCode, crashed));
}

void StreamSupervisor::onEnd(const Problem& why) {
    silence_.stop();
    unlinked_.stop();
    end_ = why;
    const AttemptEnd end{
        .mode = worker_.mode(),
        .cause = end_.cause,
        .played =
            hasPicture_ ? std::chrono::duration_cast<milliseconds>(lastPictureAt_ - firstPictureAt_) : 0ms,
    };
    const auto delay = rule_.next(end, QRandomGenerator::global()->generateDouble());
    if (delay) {
        state_ = StreamState::Waiting;
        nextAttempt_.start(*delay);
        Q_EMIT waiting(end_.text, delay->count());
    } else {
        state_ = StreamState::Ended;
        Q_EMIT ended(end_.text);
    }
}

std::optional<milliseconds> StreamSupervisor::untilNextAttempt() const {
    if (state_ != StreamState::Waiting) {
        return std::nullopt;
    }
    return milliseconds(std::max(nextAttempt_.remainingTime(), 0));
}

void StreamSupervisor::setVolume(int percent) {
    volumePercent_ = percent;
    worker_.setVolume(percent);
}

void StreamSupervisor::stopAudio() {
    volumePercent_.reset();
    worker_.stopAudio();
}

void StreamSupervisor::setPaused(bool isPaused) {
    if (std::exchange(isPaused_, isPaused) == isPaused) {
        return;
    }
    if (isPaused) {
        worker_.pause();
    } else {
        worker_.resume();
    }
    onSign();
}

FrameChannel* StreamSupervisor::frames() const noexcept {
    return shown_ != nullptr ? shown_.get() : worker_.frames();
}

} // namespace mediaworker::parent
