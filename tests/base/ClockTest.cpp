#include "base/Clock.h"

#include "support/ManualClock.h"

#include <gmock/gmock.h>

#include <thread>

namespace base {
namespace {

using namespace std::chrono_literals;
using mediaworker::test::ManualClock;

TEST(AddClamped, AddsWhatFits) {
    const TimePoint start(1s);
    EXPECT_EQ(addClamped(start, 5ns), TimePoint(1s + 5ns));
    EXPECT_EQ(addClamped(start, 0ns), start);
    EXPECT_EQ(addClamped(start, -5ns), TimePoint(1s - 5ns));
}

TEST(AddClamped, StopsAtTheLastTimePoint) {
    EXPECT_EQ(addClamped(TimePoint(1ns), nanoseconds::max()), TimePoint::max());
    EXPECT_EQ(addClamped(TimePoint(0ns), nanoseconds::max()), TimePoint::max());
    EXPECT_EQ(addClamped(TimePoint::max(), 1ns), TimePoint::max());
    EXPECT_EQ(addClamped(TimePoint::max() - 1ns, 1ns), TimePoint::max());
    EXPECT_EQ(addClamped(TimePoint::max() - 2ns, 1ns), TimePoint::max() - 1ns);
    EXPECT_EQ(addClamped(TimePoint(-1ns), nanoseconds::max()), TimePoint::max() - 1ns);
}

TEST(SteadyClock, NeverGoesBack) {
    const TimePoint first = steadyClock().now();
    EXPECT_LE(first, steadyClock().now());
    steadyClock().sleepUntil(first); // already past
}

TEST(Clock, WaitEndsAtOnceForADeadlineThatIsPast) {
    ManualClock clock;
    std::mutex mutex;
    std::condition_variable condition;
    std::unique_lock lock(mutex);
    int asked = 0;
    const auto predicate = [&asked](bool result) {
        return [&asked, result] {
            ++asked;
            return result;
        };
    };
    EXPECT_FALSE(clock.waitUntil(condition, lock, clock.now(), predicate(false)));
    EXPECT_GE(asked, 1);
    EXPECT_TRUE(clock.waitUntil(condition, lock, clock.now() - 1s, predicate(true)));
    EXPECT_TRUE(lock.owns_lock());
}

TEST(Clock, WaitEndsWhenThePredicateHoldsOrTimeIsUp) {
    ManualClock clock;
    std::mutex mutex;
    std::condition_variable condition;
    bool ready = false;
    const auto waitInThread = [&](bool& result) {
        return std::thread([&] {
            std::unique_lock lock(mutex);
            result = clock.waitUntil(condition, lock, clock.now() + 10ms, [&] { return ready; });
        });
    };
    bool result = true;
    std::thread timedOut = waitInThread(result);
    clock.waitForWaiters(1);
    clock.advance(9ms);
    clock.waitForWaiters(1);
    clock.advance(1ms);
    timedOut.join();
    EXPECT_FALSE(result);

    std::thread notified = waitInThread(result);
    clock.waitForWaiters(1);
    {
        const std::lock_guard lock(mutex);
        ready = true;
    }
    condition.notify_all();
    notified.join();
    EXPECT_TRUE(result);
}

} // namespace
} // namespace base
