#include "flv/ContinuousTime.h"

#include "base/Saturating.h"

#include <algorithm>

namespace ko_player::flv {

std::int64_t ContinuousTime::shiftOf(Medium medium, std::int64_t dtsMs) {
    Track& track = tracks_[medium == Medium::Video ? 0 : 1];
    const Track& other = tracks_[medium == Medium::Video ? 1 : 0];
    if (!track.last) {
        track.shift = other.shift;
    } else if (isJump(track, dtsMs)) {
        track.shift = shiftAfterJump(track, other, dtsMs);
    } else {
        track.step =
            std::clamp<std::int64_t>(base::subtractSaturated(dtsMs, *track.last), 1, kSmallestJumpMs);
    }
    track.last = dtsMs;
    track.reached = base::addSaturated(dtsMs, track.shift);
    return track.shift;
}

bool ContinuousTime::isJump(const Track& track, std::int64_t dtsMs) {
    return dtsMs < base::subtractSaturated(*track.last, kSmallestJumpMs) ||
           dtsMs > base::addSaturated(*track.last, kLargestGapMs);
}

/// The other kind may have seen the clock start anew before.
std::int64_t ContinuousTime::shiftAfterJump(const Track& track, const Track& other,
                                            std::int64_t dtsMs) const {
    const std::int64_t asOther = base::addSaturated(dtsMs, other.shift);
    if (other.last && other.shift != track.shift &&
        asOther >= base::subtractSaturated(track.reached, kSmallestJumpMs) &&
        asOther <= base::addSaturated(track.reached, kLargestDistanceMs)) {
        return other.shift;
    }
    const std::int64_t reached = other.last ? std::max(track.reached, other.reached) : track.reached;
    return base::subtractSaturated(base::addSaturated(reached, track.step), dtsMs);
}

} // namespace ko_player::flv
