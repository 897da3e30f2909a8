#include "parent/StreamPlayer.h"

#include "parent/Address.h"

#include <algorithm>
#include <utility>

namespace mediaworker::parent {

namespace {

constexpr std::chrono::milliseconds kRefreshInterval{250};

std::chrono::steady_clock::time_point now() {
    return std::chrono::steady_clock::now();
}

} // namespace

StreamPlayer::StreamPlayer(QObject* parent) : QObject(parent) {
    WorkerProcess& worker = supervisor_.worker();
    connect(&supervisor_, &StreamSupervisor::aboutToStart, this, &StreamPlayer::aboutToStart);
    connect(&supervisor_, &StreamSupervisor::started, this, &StreamPlayer::onStarted);
    connect(&supervisor_, &StreamSupervisor::waiting, this, &StreamPlayer::onEnd);
    connect(&supervisor_, &StreamSupervisor::ended, this, [this] {
        refreshTimer_.stop();
        onEnd();
    });
    connect(&worker, &WorkerProcess::connected, this, [this] {
        monitor_.connected();
        Q_EMIT changed();
    });
    connect(&worker, &WorkerProcess::frame, this, &StreamPlayer::onFrame);
    connect(&worker, &WorkerProcess::absoluteTime, this,
            [this](qint64 value) { monitor_.absoluteTime(value); });
    connect(&worker, &WorkerProcess::fragment, this,
            [this](qint64 position, qint64 duration) { monitor_.fragment(position, duration); });
    connect(&worker, &WorkerProcess::soundUnavailable, this, &StreamPlayer::changed);
    refreshTimer_.setInterval(kRefreshInterval);
    connect(&refreshTimer_, &QTimer::timeout, this, &StreamPlayer::changed);
    applySound();
}

StreamPlayer::~StreamPlayer() {
    supervisor_.disconnect(this);
    supervisor_.worker().disconnect(this);
}

void StreamPlayer::play(const StreamJob& job) {
    job_ = job;
    refusal_ = {};
    isPlayed_ = false;
    if (job.url.isEmpty()) {
        supervisor_.stop();
        return;
    }
    if (const QString why = addressProblem(job.url); !why.isEmpty()) {
        supervisor_.stop();
        refusal_ = {.cause = ExitCause::Failed, .text = why};
        onEnd();
        return;
    }
    ReconnectPolicy policy = policy_;
    policy.isEnabled = policy.isEnabled && isLive(job.url);
    supervisor_.setPolicy(policy);
    isPlayed_ = true;
    supervisor_.start(job);
}

void StreamPlayer::restart() {
    if (isPlayed_) {
        supervisor_.retry();
    }
}

void StreamPlayer::stop() {
    supervisor_.stop();
}

void StreamPlayer::onStarted() {
    monitor_.started(now());
    if (isPaused()) {
        monitor_.setPaused(now(), true);
    }
    refreshTimer_.start();
    Q_EMIT changed();
}

void StreamPlayer::onEnd() {
    monitor_.ended();
    Q_EMIT changed();
}

void StreamPlayer::onFrame(qint64 ptsMs) {
    const bool wasPlaying = monitor_.state(now()) == PlaybackState::Playing;
    monitor_.frame(now(), ptsMs);
    Q_EMIT frame();
    if (!wasPlaying) {
        Q_EMIT changed();
    }
}

void StreamPlayer::setPaused(bool isPaused) {
    if (isPaused == supervisor_.isPaused()) {
        return;
    }
    supervisor_.setPaused(isPaused);
    monitor_.setPaused(now(), isPaused);
    Q_EMIT changed();
}

void StreamPlayer::setVolume(int percent) {
    percent = std::clamp(percent, 0, 100);
    if (std::exchange(volumePercent_, percent) == percent) {
        return;
    }
    if (!isMuted_) {
        applySound();
    }
    Q_EMIT changed();
}

void StreamPlayer::setMuted(bool isMuted) {
    if (std::exchange(isMuted_, isMuted) != isMuted) {
        applySound();
        Q_EMIT changed();
    }
}

void StreamPlayer::applySound() {
    if (isMuted_) {
        supervisor_.stopAudio();
    } else {
        supervisor_.setVolume(volumePercent_);
    }
}

PlaybackState StreamPlayer::state() const {
    // What could not even be started has not ended for the monitor.
    return problem().text.isEmpty() ? monitor_.state(now()) : PlaybackState::Ended;
}

const Problem& StreamPlayer::problem() const noexcept {
    return refusal_.text.isEmpty() ? supervisor_.endProblem() : refusal_;
}

std::optional<std::chrono::milliseconds> StreamPlayer::untilNextAttempt() const {
    return refusal_.text.isEmpty() ? supervisor_.untilNextAttempt() : std::nullopt;
}

const QString& StreamPlayer::soundProblem() const noexcept {
    return supervisor_.worker().findings().soundUnavailable;
}

} // namespace mediaworker::parent
