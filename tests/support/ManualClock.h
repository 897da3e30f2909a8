#pragma once

#include "base/Clock.h"

#include <vector>

namespace mediaworker::test {

/// A clock that stands still until a test moves it. Threads that wait through it are woken by advance().
///
/// A test first waits until the thread under test is at rest (`waitForWaiters`), then advances.
class ManualClock final : public base::Clock {
public:
    [[nodiscard]] base::TimePoint now() const override;
    void sleepUntil(base::TimePoint deadline) override;
    using base::Clock::waitUntil;
    void waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   base::TimePoint deadline) override;

    /// Moves time on and wakes everybody who waits.
    void advance(base::nanoseconds duration);

    /// Blocks (in real time) until `count` threads wait on this clock for a deadline that has not passed.
    void waitForWaiters(int count) const;

    /// Blocks (in real time) until some thread waits for exactly that deadline.
    void waitForDeadline(base::TimePoint deadline) const;

    /// The earliest deadline anybody waits for; `TimePoint::max()` if nobody waits.
    [[nodiscard]] base::TimePoint earliestDeadline() const;

private:
    struct Waiter {
        std::condition_variable* condition; ///< null for a sleeper
        std::mutex* mutex;
        base::TimePoint deadline;
        bool mustWake = false; ///< advance() has not reached it yet
    };
    class Registration;

    [[nodiscard]] int pendingLocked() const;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;

    // Guarded by mutex_.
    base::TimePoint now_{std::chrono::hours(1)};
    std::vector<Waiter*> waiters_;
};

} // namespace mediaworker::test
