#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace base {

using TimePoint = std::chrono::steady_clock::time_point;
using std::chrono::nanoseconds;

/// The only way through which the engine meets time: production binds it to the steady clock, tests to a
/// clock that they move by hand. Thread-safe.
class Clock {
public:
    Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;
    virtual ~Clock() = default;

    [[nodiscard]] virtual TimePoint now() const = 0;

    /// Blocks the caller until `now() >= deadline`.
    virtual void sleepUntil(TimePoint deadline) = 0;

    /// Waits on `condition` (with `lock` held, as for std::condition_variable) until it is notified or
    /// `now() >= deadline`. May wake early; callers check their predicate in a loop.
    virtual void waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                           TimePoint deadline) = 0;

    /// `waitUntil` with a predicate. Returns the predicate's last value.
    template <class Predicate>
    bool waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, TimePoint deadline,
                   Predicate predicate) {
        while (!predicate()) {
            if (now() >= deadline) {
                return predicate();
            }
            waitUntil(condition, lock, deadline);
        }
        return true;
    }
};

/// The process-wide clock over std::chrono::steady_clock.
Clock& steadyClock() noexcept;

/// `start + duration`, clamped to the largest time point instead of overflowing.
[[nodiscard]] TimePoint addClamped(TimePoint start, nanoseconds duration) noexcept;

} // namespace base
