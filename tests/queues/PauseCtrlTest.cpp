#include "queues/PauseCtrl.h"
#include "support/ManualClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

namespace ko_player::details {
namespace {

class PauseCtrlTest : public testing::Test {
protected:
    /// A thread that stands still in wait().
    std::future<bool> startWaiting() {
        auto result = std::async(std::launch::async, [this] { return pause.wait(); });
        while (pause.waiting() == 0) {
            std::this_thread::yield();
        }
        return result;
    }

    PauseCtrl pause;
};

TEST_F(PauseCtrlTest, DoesNotWaitWithoutAReason) {
    EXPECT_FALSE(pause.wait());
    EXPECT_FALSE(pause.isPaused());
}

TEST_F(PauseCtrlTest, TheUsersResumeIsReported) {
    pause.set(PauseReason::User);
    auto waiting = startWaiting();
    pause.clear(PauseReason::User);
    EXPECT_TRUE(waiting.get());
}

TEST_F(PauseCtrlTest, TheEndOfBufferingIsNot) {
    pause.set(PauseReason::Buffering);
    auto waiting = startWaiting();
    pause.clear(PauseReason::Buffering);
    EXPECT_FALSE(waiting.get());
}

TEST_F(PauseCtrlTest, TheUsersPauseOutlastsBuffering) {
    pause.set(PauseReason::Buffering);
    auto waiting = startWaiting();
    pause.set(PauseReason::User);
    pause.clear(PauseReason::Buffering);
    EXPECT_TRUE(pause.isPaused());
    EXPECT_EQ(waiting.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    pause.clear(PauseReason::User);
    EXPECT_TRUE(waiting.get());
}

TEST_F(PauseCtrlTest, TheReasonThatGoesLastCounts) {
    pause.set(PauseReason::User);
    pause.set(PauseReason::Buffering);
    auto waiting = startWaiting();
    pause.clear(PauseReason::User);
    pause.clear(PauseReason::Buffering);
    EXPECT_FALSE(waiting.get());
}

TEST_F(PauseCtrlTest, ClearingTwiceKeepsTheFirstReason) {
    pause.set(PauseReason::User);
    auto waiting = startWaiting();
    pause.clear(PauseReason::User);
    pause.clear(PauseReason::Buffering); // the set was empty already
    EXPECT_TRUE(waiting.get());
}

TEST_F(PauseCtrlTest, IgnoresChangesWhileDisabled) {
    pause.setDisabled(true);
    pause.set(PauseReason::User);
    EXPECT_FALSE(pause.isPaused());
    pause.setDisabled(false);
    pause.set(PauseReason::User);
    pause.setDisabled(true);
    pause.clear(PauseReason::User);
    EXPECT_TRUE(pause.isPaused());
}

TEST_F(PauseCtrlTest, StoppingEndsAllWaits) {
    pause.set(PauseReason::User);
    auto waiting = startWaiting();
    pause.stop();
    EXPECT_FALSE(waiting.get());
    EXPECT_FALSE(pause.wait()) << "later ones too";
}

TEST_F(PauseCtrlTest, ASleepEndsAtItsTime) {
    mediaworker::test::ManualClock clock;
    auto sleeping = std::async(
        std::launch::async, [&] { pause.sleepUntil(clock, clock.now() + std::chrono::milliseconds(100)); });
    clock.waitForWaiters(1);
    EXPECT_EQ(clock.earliestDeadline() - clock.now(), std::chrono::milliseconds(100));
    clock.advance(std::chrono::milliseconds(100));
    sleeping.get();
}

TEST_F(PauseCtrlTest, APauseInterruptsASleep) {
    mediaworker::test::ManualClock clock;
    auto sleeping =
        std::async(std::launch::async, [&] { pause.sleepUntil(clock, clock.now() + std::chrono::hours(1)); });
    clock.waitForWaiters(1);
    pause.set(PauseReason::Buffering);
    sleeping.get();
}

TEST_F(PauseCtrlTest, APauseThatWasStoppedInterruptsNone) {
    mediaworker::test::ManualClock clock;
    pause.set(PauseReason::User);
    pause.stop();
    EXPECT_TRUE(pause.isStopped());
    auto sleeping = std::async(std::launch::async,
                               [&] { pause.sleepUntil(clock, clock.now() + std::chrono::seconds(1)); });
    clock.waitForWaiters(1);
    clock.advance(std::chrono::seconds(1));
    sleeping.get();
}

} // namespace
} // namespace ko_player::details
