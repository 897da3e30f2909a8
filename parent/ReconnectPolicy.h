#pragma once

#include "parent/ExitReason.h"

#include <chrono>
#include <optional>

namespace mediaworker::parent {

/// When a stream whose worker has ended is started again.
struct ReconnectPolicy {
    bool isEnabled = true;                     ///< false: never
    std::chrono::milliseconds firstDelay{500}; ///< before the first attempt to start it again
    /// So many attempts follow each other after the first delay: a server that was away for five seconds is
    /// to be found again within one, whoever waits for a picture. Then the delay doubles with each attempt.
    int quickAttempts = 10;
    /// What the delay doubles up to.
    std::chrono::milliseconds longestDelay{30000};
    /// How much of a delay is left to chance, so that many streams of one server do not come back in the same
    /// instant: a delay of d takes d * (1 - randomPart) to d. 0 to 1.
    double randomPart = 0.2;
    /// After so much time with pictures the next end is the first one again.
    std::chrono::milliseconds settledAfter{10000};
    /// What nothing here can decode, or run, will not get better by itself: that many ends of the kind in a
    /// row are the last.
    int hopelessAttempts = 3;
};

/// How one attempt to play a stream ended.
struct AttemptEnd {
    WorkerMode mode = WorkerMode::Stream; ///< what the worker did
    ExitCause cause = ExitCause::Unknown; ///< why it ended
    std::chrono::milliseconds played{0};  ///< from its first picture to its newest
};

/// Carries a policy out: tell it every end. Holds no clock. Not thread-safe.
class ReconnectRule {
public:
    ReconnectRule() : ReconnectRule(ReconnectPolicy{}) {}
    /// Delays below zero, and parts that are none, are taken for the nearest that make sense.
    explicit ReconnectRule(const ReconnectPolicy& policy);

    /// Forgets what was: the user wants it now.
    void reset();

    /// How long to wait for the next attempt; empty: that was the last one. `random`: 0 to 1, another number
    /// each time.
    [[nodiscard]] std::optional<std::chrono::milliseconds> next(const AttemptEnd& end, double random);

private:
    ReconnectPolicy policy_;
    int attempts_ = 0; ///< in a row, without as many pictures as would settle it
    int hopeless_ = 0; ///< of these, the last ones
};

} // namespace mediaworker::parent
