#pragma once

#include "base/Clock.h"

#include <cstdint>

namespace ko_player {

/// When to release the next picture. A pure rule: it keeps time stamps and time points, never waits, and is
/// used by one thread.
///
/// The clock is the pictures' own time stamps in milliseconds, laid onto the steady clock: the first picture
/// anchors it. A stream that is late keeps the spacing of its pictures from the previous release instead of
/// jumping, and runs at 0.8 of that spacing while more than half a second of received video waits behind the
/// picture.
class PresentationClock {
public:
    enum class Notice {
        None,
        BigDifference, ///< the time stamps jumped ahead; the schedule restarts at the present
        NegativeDelta, ///< the time stamps went back; the reference moves on by 1 ms
    };

    struct Release {
        base::TimePoint showTime;
        bool mustWait = false; ///< sleep until `showTime`; otherwise the picture is due at once
        Notice notice = Notice::None;
        std::int64_t deltaMs = 0; ///< between the time stamps, for BigDifference
    };

    /// `ptsMs` is the picture's time stamp, `newestPushedMs` that of the newest video packet received.
    [[nodiscard]] Release next(std::int64_t ptsMs, std::int64_t newestPushedMs, base::TimePoint now);

    /// Forgets the reference: the next picture is released at once and anchors the clock anew.
    void reset() noexcept { lastTimestampMs_ = kNoReference; }

private:
    static constexpr std::int64_t kNoReference = -1;

    std::int64_t lastTimestampMs_ = kNoReference;
    base::TimePoint frameTime_; ///< ideal time of the current picture, advanced by time stamp differences
    base::TimePoint showTime_;  ///< when the current picture is released
};

} // namespace ko_player
