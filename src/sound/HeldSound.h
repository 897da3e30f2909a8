#pragma once

#include "base/Clock.h"
#include "sound/AudioDevice.h"

#include <optional>
#include <vector>

/// How much of what a device was given has not been heard yet. A pure rule; milliseconds of sound throughout.
///
/// A device only tells how much room it has. A sound server takes sound out of that room in blocks, some
/// hundred milliseconds before it is heard; the wave interface gives the room of a block back when all of it
/// was heard. So what is heard is reckoned by the clock, from the moment when the device began to play, and
/// held between what its room allows.
class HeldSound {
public:
    explicit HeldSound(AudioDevice::RoomComes roomComes) : roomComes_(roomComes) {}

    void wrote(double ms, base::TimePoint now);
    /// What the device told: `queuedMs` is what it holds as far as its room says.
    void update(double queuedMs, base::TimePoint now);

    void suspend(base::TimePoint now);
    void resume(base::TimePoint now);

    [[nodiscard]] bool isPlaying() const { return playing_; }
    /// As of the last update.
    [[nodiscard]] double ms() const { return writtenMs_ - heardMs_; }

private:
    void begin(double heardMs, base::TimePoint now);
    void goOn(double takenMs, base::TimePoint now);
    void compareClocks(double takenMs, base::TimePoint now);
    [[nodiscard]] double reckoned(base::TimePoint now) const;

    const AudioDevice::RoomComes roomComes_;
    double writtenMs_ = 0; ///< since the device started
    double heardMs_ = 0;
    bool playing_ = false;
    bool standsStill_ = false; ///< it played, and took nothing for long
    base::TimePoint lastLook_; ///< while it does not play: when that was last known
    std::optional<base::TimePoint> suspendedAt_;

    // While it plays: heardMs_ was `anchorMs_` at `anchor_`.
    base::TimePoint anchor_;
    double anchorMs_ = 0;
    std::optional<base::TimePoint> behindSince_; ///< the system was seen not to have taken what is heard

    // How far the system was ahead of what is heard, at the least in each second: what that changes by is
    // what the clocks have run apart.
    base::TimePoint secondBegan_;
    double leastAheadMs_ = 0;
    std::vector<double> leastOfSeconds_;
    std::optional<double> firstAheadMs_;
};
