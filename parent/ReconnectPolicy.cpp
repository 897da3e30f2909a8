#include "parent/ReconnectPolicy.h"

#include <algorithm>
#include <cmath>

namespace mediaworker::parent {

namespace {

using std::chrono::milliseconds;

/// Quick ones, and doublings: above this nothing changes any more.
constexpr int kMostAttempts = 1000;

/// The stream came, and was no good; or no worker can be run.
bool isHopeless(ExitCause cause) {
    switch (cause) {
    case ExitCause::PicturesUnavailable:
    case ExitCause::PicturesEnded:
    case ExitCause::NotAStream:
    case ExitCause::FileNotWritable:
    case ExitCause::Crashed:
    case ExitCause::WorkerMissing:
    case ExitCause::WorkerUnusable:
    case ExitCause::Failed:
        return true;
    default:
        return false;
    }
}

/// Nothing that a new worker would change.
bool isFinal(const AttemptEnd& end) {
    return end.mode != WorkerMode::Stream || end.cause == ExitCause::LinkClosed;
}

} // namespace

ReconnectRule::ReconnectRule(const ReconnectPolicy& policy) : policy_(policy) {
    policy_.firstDelay = std::max(policy.firstDelay, milliseconds::zero());
    policy_.longestDelay = std::max(policy.longestDelay, policy_.firstDelay);
    policy_.quickAttempts = std::clamp(policy.quickAttempts, 1, kMostAttempts);
    policy_.randomPart = policy.randomPart > 0 ? std::min(policy.randomPart, 1.0) : 0.0;
}

void ReconnectRule::reset() {
    attempts_ = 0;
    hopeless_ = 0;
}

std::optional<milliseconds> ReconnectRule::next(const AttemptEnd& end, double random) {
    if (end.played >= policy_.settledAfter) {
        reset();
    }
    hopeless_ = isHopeless(end.cause) ? hopeless_ + 1 : 0;
    if (!policy_.isEnabled || isFinal(end) || hopeless_ >= policy_.hopelessAttempts) {
        return std::nullopt;
    }
    const int doublings = std::max(attempts_ + 1 - policy_.quickAttempts, 0);
    const double doubled = static_cast<double>(policy_.firstDelay.count()) * std::exp2(doublings);
    const double delay = std::min(doubled, static_cast<double>(policy_.longestDelay.count()));
    attempts_ = std::min(attempts_ + 1, 2 * kMostAttempts);
    const double part = policy_.randomPart * std::clamp(random, 0.0, 1.0);
    return milliseconds(std::llround(delay * (1.0 - part)));
}

} // namespace mediaworker::parent
