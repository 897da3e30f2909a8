#pragma once

#include "base/Clock.h"
#include "queues/PlayerState.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace ko_player {

/// How far sound may be off, in milliseconds; positive: late.
struct SyncBounds {
    double early = -40;
    double late = 70;
    double lateAtBegin = 20;     ///< where it begins it may be put right without a notice
    double aim = 0;              ///< where it is put when it was beyond its bounds
    double lateBehindHurry = 65; ///< the same two while pictures catch up: it cannot know when they stop
    double aimBehindHurry = 50;
    bool keepsWhatItFinds = false; ///< sound that cannot be sooner stays where it settles
};

/// What is to be done with the next part of the sound, so that it is heard when its picture is seen. A pure
/// rule: it keeps numbers, never waits, and is used by one thread.
///
/// Where sound begins, or goes on after an interruption, it is put right at once. After that, what lies
/// within bounds that nobody notices is left alone, and taken back slowly by a speed that nobody hears
/// either: that also takes up a sound card whose clock runs fast or slow.
class SyncRule {
public:
    enum class Action {
        Write,     ///< now
        WriteFree, ///< now: there is no picture to keep step with
        Wait,      ///< it is early by `ms`
        Skip,      ///< drop `ms` of it: it is late
    };
    struct Decision {
        Action action = Action::Write;
        double ms = 0;
    };

    struct Situation {
        double stampMs = 0;                     ///< of the next part
        std::optional<ShownPicture> shown = {}; ///< last
        base::TimePoint now;
        double heldMs = 0; ///< heard before what is written now
    };

    explicit SyncRule(const SyncBounds& bounds = {}) : bounds_(bounds) {}

    [[nodiscard]] Decision next(const Situation& situation);
    /// How late the next part would be heard, in milliseconds; negative: early. Nothing where there is no
    /// picture to compare it with.
    [[nodiscard]] std::optional<double> lateness(const Situation& situation);

    /// Sound begins, or goes on after it stood still.
    void restart(base::TimePoint now);
    void setBounds(const SyncBounds& bounds) { bounds_ = bounds; }

    /// By how much sound is to be played faster, in millionths; negative: slower.
    [[nodiscard]] int speedUpPpm() const { return speedUpPpm_; }

private:
    struct Offset {
        double atMs;
        double offsetMs; ///< from the pictures' stamps to the time they are shown
    };

    void follow(const ShownPicture& shown);
    [[nodiscard]] double slope() const;
    [[nodiscard]] Decision atBegin(double lateMs);
    [[nodiscard]] Decision onTheWay(double lateMs, base::TimePoint now);
    void adjustSpeed(double lateMs, base::TimePoint now);
    Decision correct(Action action, double ms);

    SyncBounds bounds_;
    bool begins_ = true;
    std::optional<base::TimePoint> begunAt_;
    std::deque<Offset> offsets_; ///< of the last pictures
    std::vector<double> recent_; ///< deviations since the last correction, the newest few

    // The slow part.
    double slowMs_ = 0; ///< smoothed deviation
    std::optional<base::TimePoint> slowSince_;
    base::TimePoint slowAt_;
    std::optional<double> slowAimMs_;
    int speedUpPpm_ = 0;
};

} // namespace ko_player
