#include "parent/PlaybackMonitor.h"

#include <algorithm>
#include <limits>

namespace mediaworker::parent {

namespace {

using std::chrono::duration_cast;

constexpr std::chrono::seconds kSecond{1};

// Time stamps are whatever the worker sends: their sums and differences must not overflow.
constexpr qint64 kMin = std::numeric_limits<qint64>::min();
constexpr qint64 kMax = std::numeric_limits<qint64>::max();

qint64 add(qint64 a, qint64 b) {
    if (b > 0 ? a > kMax - b : a < kMin - b) {
        return b > 0 ? kMax : kMin;
    }
    return a + b;
}

qint64 subtract(qint64 a, qint64 b) {
    if (b > 0 ? a < kMin + b : a > kMax + b) {
        return b > 0 ? kMin : kMax;
    }
    return a - b;
}

} // namespace

void PlaybackMonitor::started(TimePoint now) {
    *this = {};
    phase_ = Phase::Started;
    startedAt_ = now;
}

void PlaybackMonitor::connected() {
    if (phase_ == Phase::Started) {
        phase_ = Phase::Connected;
    }
}

void PlaybackMonitor::ended() {
    if (isRunning()) {
        phase_ = Phase::Ended;
        pausedSince_.reset();
    }
}

bool PlaybackMonitor::isRunning() const {
    return phase_ == Phase::Started || phase_ == Phase::Connected;
}

void PlaybackMonitor::anchor(TimePoint now, qint64 ptsMs) {
    anchorAt_ = now;
    anchorPtsMs_ = ptsMs;
    pausedFor_ = {};
}

void PlaybackMonitor::frame(TimePoint now, qint64 ptsMs) {
    if (!isRunning()) {
        return;
    }
    phase_ = Phase::Connected;
    // A picture that comes during a pause was on its way, or the worker has not taken the command yet: up to
    // here the stream ran.
    if (pausedSince_) {
        pausedSince_ = now;
    }
    if (!ptsMs_) {
        firstFrameAt_ = now;
        anchor(now, ptsMs);
    } else {
        const qint64 spacingMs = subtract(ptsMs, *ptsMs_);
        if (spacingMs > kMaxSpacing.count() || spacingMs < -kMaxSpacing.count()) {
            anchor(now, ptsMs);
        } else {
            spacing_ = Milliseconds(std::max<qint64>(spacingMs, 0));
        }
    }
    ranAtFrame_ = ranUntil(now);
    if (absoluteTime_ && !absoluteTimePtsMs_) {
        absoluteTimePtsMs_ = ptsMs;
    }
    ++frames_;
    ptsMs_ = ptsMs;
    lastFrameAt_ = now;
    recent_.push_back(now);
    while (recent_.front() <= now - kSecond || recent_.size() > kMaxFramesPerSecond) {
        recent_.pop_front();
    }
}

void PlaybackMonitor::setPaused(TimePoint now, bool paused) {
    if (!isRunning() || paused == isPaused()) {
        return;
    }
    if (paused) {
        pausedSince_ = now;
        return;
    }
    if (ptsMs_) {
        pausedFor_ += now - *pausedSince_;
    }
    pausedSince_.reset();
    resumedAt_ = now;
}

void PlaybackMonitor::absoluteTime(qint64 value) {
    absoluteTime_ = value;
    absoluteTimePtsMs_ = ptsMs_;
}

void PlaybackMonitor::fragment(qint64 position, qint64 duration) {
    fragment_ = Fragment{position, duration};
}

PlaybackState PlaybackMonitor::state(TimePoint now) const {
    switch (phase_) {
    case Phase::Idle:
        return PlaybackState::Idle;
    case Phase::Started:
        return PlaybackState::Connecting;
    case Phase::Ended:
        return PlaybackState::Ended;
    case Phase::Connected:
        break;
    }
    if (isPaused()) {
        return PlaybackState::Paused;
    }
    const bool isSilent = !ptsMs_ || now - std::max(lastFrameAt_, resumedAt_) > kSilence;
    return isSilent ? PlaybackState::Buffering : PlaybackState::Playing;
}

double PlaybackMonitor::framesPerSecond(TimePoint now) const {
    const auto firstThatCounts = std::upper_bound(recent_.begin(), recent_.end(), now - kSecond);
    return static_cast<double>(recent_.end() - firstThatCounts);
}

std::optional<PlaybackMonitor::Milliseconds> PlaybackMonitor::timeToFirstPicture() const {
    if (!firstFrameAt_) {
        return std::nullopt;
    }
    return duration_cast<Milliseconds>(*firstFrameAt_ - startedAt_);
}

std::optional<qint64> PlaybackMonitor::absoluteTimeMs() const {
    if (!absoluteTime_ || !absoluteTimePtsMs_) {
        return absoluteTime_;
    }
    return add(*absoluteTime_, subtract(*ptsMs_, *absoluteTimePtsMs_));
}

std::chrono::nanoseconds PlaybackMonitor::ranUntil(TimePoint now) const {
    return now - anchorAt_ - pausedUntil(now);
}

std::chrono::nanoseconds PlaybackMonitor::pausedUntil(TimePoint now) const {
    return isPaused() ? pausedFor_ + (now - *pausedSince_) : pausedFor_;
}

qint64 PlaybackMonitor::behindMs(TimePoint now) const {
    return ptsMs_ ? add(delayMs(now), duration_cast<Milliseconds>(pausedUntil(now)).count()) : 0;
}

qint64 PlaybackMonitor::delayMs(TimePoint now) const {
    if (frames_ < 2) {
        return 0;
    }
    std::chrono::nanoseconds ran = ranAtFrame_;
    if (isRunning()) {
        ran += std::max(ranUntil(now) - ranAtFrame_ - spacing_, std::chrono::nanoseconds::zero());
    }
    return subtract(duration_cast<Milliseconds>(ran).count(), subtract(*ptsMs_, anchorPtsMs_));
}

} // namespace mediaworker::parent
