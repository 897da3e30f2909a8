#include "output/PresentationClock.h"

#include "base/Saturating.h"

#include <chrono>

namespace ko_player {
namespace {

using std::chrono::milliseconds;

/// A larger step between pictures is a jump of the stream, not a pause that anybody wants to sit through.
constexpr std::int64_t kLargestStepMs = 1200;
/// More received video than this behind a late picture makes presentation hurry.
constexpr std::int64_t kHurryBacklogMs = 500;
constexpr double kHurryFactor = 0.8;

} // namespace

PresentationClock::Release PresentationClock::next(std::int64_t ptsMs, std::int64_t newestPushedMs,
                                                   base::TimePoint now) {
    Release release;
    if (lastTimestampMs_ < 0) {
        lastTimestampMs_ = ptsMs;
        frameTime_ = showTime_ = now;
        release.showTime = now;
        return release;
    }

    std::int64_t deltaMs = 1;
    if (ptsMs >= lastTimestampMs_) {
        deltaMs = ptsMs - lastTimestampMs_; // both are at least 0 here
        lastTimestampMs_ = ptsMs;
        if (deltaMs <= kLargestStepMs) {
            frameTime_ += milliseconds(deltaMs);
        } else {
            release.notice = Notice::BigDifference;
            release.deltaMs = deltaMs;
            frameTime_ = now;
        }
    } else {
        release.notice = Notice::NegativeDelta;
        lastTimestampMs_ = base::addSaturated(lastTimestampMs_, 1);
        frameTime_ += milliseconds(deltaMs);
    }

    if (frameTime_ >= now) {
        showTime_ = frameTime_;
        release.mustWait = true;
    } else {
        const bool hurry = base::subtractSaturated(newestPushedMs, kHurryBacklogMs) > ptsMs;
        const auto spacingMs =
            static_cast<std::int64_t>(static_cast<double>(deltaMs) * (hurry ? kHurryFactor : 1.0));
        const base::TimePoint candidate = showTime_ + milliseconds(spacingMs);
        release.mustWait = now < candidate;
        showTime_ = release.mustWait ? candidate : now;
    }
    release.showTime = showTime_;
    return release;
}

} // namespace ko_player
