#include "sound/HeldSound.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <utility>

namespace {

/// In so many seconds clocks run apart by some milliseconds at most.
constexpr std::size_t kSeconds = 9;
/// A server that took nothing for so long waits until it has more.
constexpr std::chrono::milliseconds kStandstill{150};
constexpr double kLateWordMs = 30;
constexpr double kNoMeasure = std::numeric_limits<double>::max();
/// Rates do not divide evenly into milliseconds.
constexpr double kNothingMs = 0.05;
/// More than a block of the wave interface: a fifth of its buffer.
constexpr double kBlockMs = 80;

} // namespace

void HeldSound::wrote(double ms, base::TimePoint now) {
    const bool wasEmpty = HeldSound::ms() <= kNothingMs;
    writtenMs_ += ms;
    lastLook_ = now;
    if (!playing_ && wasEmpty && roomComes_ == AudioDevice::RoomComes::AfterItWasHeard) {
        begin(heardMs_, now);
    }
}

void HeldSound::update(double queuedMs, base::TimePoint now) {
    if (suspendedAt_) {
        return;
    }
    const double takenMs = writtenMs_ - queuedMs;
    if (!playing_) {
        if (takenMs <= heardMs_ + kNothingMs) {
            lastLook_ = now;
            return;
        }
        goOn(takenMs, now);
    }
    heardMs_ = reckoned(now);
    if (roomComes_ == AudioDevice::RoomComes::BeforeItIsHeard) {
        compareClocks(takenMs, now);
    } else if (heardMs_ < takenMs || heardMs_ > takenMs + kBlockMs) {
        begin(std::clamp(heardMs_, takenMs, takenMs + kBlockMs), now);
    }
    if (playing_ && heardMs_ >= writtenMs_ - kNothingMs) {
        heardMs_ = writtenMs_;
        playing_ = standsStill_ = false;
        lastLook_ = now;
    }
}

void HeldSound::goOn(double takenMs, base::TimePoint now) {
    if (std::exchange(standsStill_, false) && takenMs >= reckoned(now) - kLateWordMs) {
        playing_ = true; // and it did all the time: nobody told
        behindSince_.reset();
        return;
    }
    // Right after it was last seen not to: looks are rare on a busy machine, devices are not.
    begin(heardMs_, lastLook_);
}

void HeldSound::compareClocks(double takenMs, base::TimePoint now) {
    const double aheadMs = takenMs - heardMs_;
    if (aheadMs >= 0) {
        behindSince_.reset();
    } else if (!behindSince_) {
        behindSince_ = now;
    } else if (now - *behindSince_ > kStandstill) { // nobody hears what was not taken
        heardMs_ = takenMs;
        playing_ = false;
        standsStill_ = true;
        lastLook_ = now;
        return;
    }
    leastAheadMs_ = std::min(leastAheadMs_, aheadMs);
    if (now - secondBegan_ < std::chrono::seconds(1)) {
        return;
    }
    secondBegan_ = now;
    leastOfSeconds_.push_back(std::exchange(leastAheadMs_, kNoMeasure));
    if (leastOfSeconds_.size() < kSeconds) {
        return;
    }
    // The middle one: a busy machine may be late to tell what was taken.
    const auto middle = leastOfSeconds_.begin() + kSeconds / 2;
    std::nth_element(leastOfSeconds_.begin(), middle, leastOfSeconds_.end());
    if (!firstAheadMs_) {
        firstAheadMs_ = *middle;
    }
    const double apartMs = *middle - *firstAheadMs_;
    anchorMs_ += apartMs;
    heardMs_ += apartMs;
    leastOfSeconds_.clear();
}

void HeldSound::begin(double heardMs, base::TimePoint now) {
    playing_ = true;
    standsStill_ = false;
    anchor_ = secondBegan_ = now;
    behindSince_.reset();
    anchorMs_ = heardMs_ = heardMs;
    leastAheadMs_ = kNoMeasure;
    leastOfSeconds_.clear();
    firstAheadMs_.reset();
}

void HeldSound::suspend(base::TimePoint now) {
    if (playing_) {
        heardMs_ = std::min(reckoned(now), writtenMs_);
    }
    suspendedAt_ = now;
}

void HeldSound::resume(base::TimePoint now) {
    if (suspendedAt_ && playing_) {
        anchor_ = now;
        begin(heardMs_, now);
    }
    suspendedAt_.reset();
}

double HeldSound::reckoned(base::TimePoint now) const {
    return anchorMs_ + std::chrono::duration<double, std::milli>(now - anchor_).count();
}
