#include "base/Clock.h"

#include <thread>

namespace base {
namespace {

class SteadyClock final : public Clock {
public:
    [[nodiscard]] TimePoint now() const override { return std::chrono::steady_clock::now(); }

    void sleepUntil(TimePoint deadline) override { std::this_thread::sleep_until(deadline); }

    void waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   TimePoint deadline) override {
        condition.wait_until(lock, deadline);
    }
};

} // namespace

Clock& steadyClock() noexcept {
    static SteadyClock clock;
    return clock;
}

TimePoint addClamped(TimePoint start, nanoseconds duration) noexcept {
    if (duration > nanoseconds::zero() && start > TimePoint::max() - duration) {
        return TimePoint::max();
    }
    return start + duration;
}

} // namespace base
