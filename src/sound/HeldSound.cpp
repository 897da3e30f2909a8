#include "sound/HeldSound.h"

#include <algorithm>
#include <chrono>
#include <limits>

namespace {

/// Long enough for many blocks of a sound server; the clocks run apart by less than 1 ms in it.
constexpr std::chrono::seconds kWhile{10};
/// A server that took nothing for so long waits until it has more.
constexpr std::chrono::milliseconds kStandstill{80};
constexpr double kNoMeasure = std::numeric_limits<double>::max();
/// Rates do not divide evenly into milliseconds.
constexpr double kNothingMs = 0.05;
/// More than a block of the wave interface: a fifth of its buffer.
constexpr double kBlockMs = 80;

} // namespace

void HeldSound::wrote(double ms, base::TimePoint now) {
    const bool wasEmpty = HeldSound::ms() <= kNothingMs;
    writtenMs_ += ms;
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
            return;
        }
        begin(heardMs_, now);
    }
    heardMs_ = reckoned(now);
    if (roomComes_ == AudioDevice::RoomComes::BeforeItIsHeard) {
        correctAhead(takenMs, now);
    } else if (heardMs_ < takenMs || heardMs_ > takenMs + kBlockMs) {
        begin(std::clamp(heardMs_, takenMs, takenMs + kBlockMs), now);
    }
    if (heardMs_ >= writtenMs_ - kNothingMs) {
        heardMs_ = writtenMs_;
        playing_ = false;
    }
}

void HeldSound::correctAhead(double takenMs, base::TimePoint now) {
    if (heardMs_ > takenMs) { // nobody hears what was not taken
        anchor_ = now;
        anchorMs_ = heardMs_ = takenMs;
        playing_ = now - lastAhead_ < kStandstill;
    } else {
        lastAhead_ = now;
    }
    leastAheadMs_ = std::min(leastAheadMs_, takenMs - heardMs_);
    if (now - whileBegan_ < kWhile) {
        return;
    }
    if (firstAheadMs_) {
        const double apartMs = std::min(leastAheadMs_ - *firstAheadMs_, takenMs - heardMs_);
        anchorMs_ += apartMs;
        heardMs_ += apartMs;
    } else {
        firstAheadMs_ = leastAheadMs_;
    }
    whileBegan_ = now;
    leastAheadMs_ = kNoMeasure;
}

void HeldSound::begin(double heardMs, base::TimePoint now) {
    playing_ = true;
    anchor_ = whileBegan_ = lastAhead_ = now;
    anchorMs_ = heardMs_ = heardMs;
    leastAheadMs_ = kNoMeasure;
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
