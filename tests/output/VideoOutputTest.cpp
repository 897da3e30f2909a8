#include "output/VideoOutput.h"
#include "FakeHandlers.h"
#include "Frames.h"
#include "support/LogCapture.h"
#include "support/ManualClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

namespace ko_player {
namespace {

using details::PauseReason;
using mediaworker::test::FakeVideoHandler;
using mediaworker::test::LogCapture;
using mediaworker::test::makePicture;
using mediaworker::test::ManualClock;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;

class VideoOutputTest : public testing::Test {
protected:
    ~VideoOutputTest() override {
        pause->stop();
        frames->close();
        // A picture may be held back until its time.
        while (output && !finished()) {
            clock.advance(seconds(2));
        }
    }

    void start(seconds firstTimeout = seconds(5), seconds nextTimeout = seconds(3), bool withHandler = true) {
        output = std::make_unique<VideoOutput>(frames, metadata, state, firstTimeout, nextTimeout,
                                               withHandler ? handler : nullptr, clock);
    }
    void push(std::int64_t pts, int width = 64, int height = 48, int format = AV_PIX_FMT_YUV420P) {
        state->newestPushedMs = std::max<std::int64_t>(state->newestPushedMs, pts);
        ASSERT_TRUE(frames->push(makePicture(pts, width, height, format)));
    }
    /// Waits until the output sleeps for a picture that is due in that long, and lets the time pass.
    void passSleep(milliseconds expected) {
        const auto due = clock.now() + expected;
        clock.waitForDeadline(due);
        clock.advance(due - clock.now());
    }
    void waitUntilPaused() const {
        while (pause->waiting() == 0) {
            std::this_thread::yield();
        }
    }
    [[nodiscard]] bool finished() const { return log.contains("showTask is finished"); }
    void waitUntilFinished() { output->join(); }

    LogCapture log;
    ManualClock clock;
    std::shared_ptr<FrameQueue> frames = std::make_shared<FrameQueue>(4);
    std::shared_ptr<MetadataQueue> metadata = std::make_shared<MetadataQueue>(150);
    std::shared_ptr<details::PauseCtrl> pause = std::make_shared<details::PauseCtrl>();
    std::shared_ptr<VideoState> state = std::make_shared<VideoState>(pause);
    std::shared_ptr<FakeVideoHandler> handler = std::make_shared<FakeVideoHandler>();
    std::unique_ptr<VideoOutput> output;
};

TEST_F(VideoOutputTest, ReleasesTheFirstPictureAtOnce) {
    start();
    push(70000);
    handler->waitForShown(1);
    EXPECT_THAT(handler->events(), ElementsAre("params 64x48", "lock", "unlock", "frame 70000"));
    EXPECT_EQ(handler->lastSize(), 64 * 48 * 4);
    EXPECT_EQ(state->lastShownMs, 70000);
    EXPECT_TRUE(
        log.contains("ko_player::VideoOutput::handleFirstFrame: inParams:  fmt: 0, w: 64, h: 48, sar: 0/1"));
}

TEST_F(VideoOutputTest, HoldsPicturesBackUntilTheirTime) {
    start();
    push(0);
    push(40);
    push(80);
    handler->waitForShown(1);
    for (const std::size_t shown : {2U, 3U}) {
        passSleep(milliseconds(40));
        handler->waitForShown(shown);
    }
    EXPECT_THAT(handler->shown(), ElementsAre(0, 40, 80));
}

TEST_F(VideoOutputTest, ConvertsBeforeItWaits) {
    start();
    push(0);
    push(40);
    handler->waitForEvent("unlock", 2);
    clock.waitForWaiters(1);
    EXPECT_THAT(handler->shown(), ElementsAre(0)) << "converted, but not shown yet";
    EXPECT_EQ(state->lastShownMs, 0);
}

TEST_F(VideoOutputTest, LogsJumpsOfTheTimeStamps) {
    start();
    push(0);
    push(1201);
    push(1100);
    handler->waitForShown(2);
    passSleep(milliseconds(1));
    handler->waitForShown(3);
    EXPECT_TRUE(log.contains("There is to big difference: 1201"));
    EXPECT_TRUE(log.contains("Negative video frame time delta"));
}

TEST_F(VideoOutputTest, AsksTheHandlerWhenTheFirstPictureDoesNotCome) {
    handler->timeoutAnswer = [] { return false; };
    start(seconds(5), seconds(3));
    clock.waitForWaiters(1);
    EXPECT_EQ(clock.earliestDeadline() - clock.now(), seconds(5));
    clock.advance(milliseconds(4999));
    clock.waitForWaiters(1);
    EXPECT_EQ(handler->count("timeout"), 0);
    clock.advance(milliseconds(1));
    waitUntilFinished();
    EXPECT_THAT(handler->events(), ElementsAre("timeout", "stopped"));
    EXPECT_TRUE(log.contains("video frame waiting timeout: 5"));
    EXPECT_TRUE(log.contains("showTask is finished"));
    EXPECT_FALSE(frames->push(makePicture(0))) << "the queue is closed";
}

TEST_F(VideoOutputTest, WaitsOnWhenTheHandlerSaysSo) {
    int answers = 0;
    handler->timeoutAnswer = [&] { return ++answers < 2; };
    start(seconds(5), seconds(3));
    clock.waitForWaiters(1);
    clock.advance(seconds(5));
    handler->waitForEvent("timeout", 1);
    clock.waitForWaiters(1);
    EXPECT_EQ(clock.earliestDeadline() - clock.now(), seconds(5)) << "the same time-out again";
    clock.advance(seconds(5));
    waitUntilFinished();
    EXPECT_EQ(handler->count("timeout"), 2);
}

TEST_F(VideoOutputTest, UsesTheSecondTimeoutAfterAPicture) {
    start(seconds(5), seconds(3));
    push(0);
    handler->waitForShown(1);
    clock.waitForWaiters(1);
    EXPECT_EQ(clock.earliestDeadline() - clock.now(), seconds(3));
    clock.advance(seconds(3));
    waitUntilFinished();
    EXPECT_TRUE(log.contains("video frame waiting timeout: 3"));
}

TEST_F(VideoOutputTest, RaisesTimeoutsBelowOneSecond) {
    start(seconds(0), seconds(-7));
    clock.waitForWaiters(1);
    EXPECT_EQ(clock.earliestDeadline() - clock.now(), seconds(1));
    push(0);
    handler->waitForShown(1);
    clock.waitForWaiters(1);
    EXPECT_EQ(clock.earliestDeadline() - clock.now(), seconds(1));
}

TEST_F(VideoOutputTest, EndsWithoutAHandlerWhenNothingComes) {
    start(seconds(5), seconds(3), false);
    clock.waitForWaiters(1);
    clock.advance(seconds(5));
    waitUntilFinished();
    EXPECT_TRUE(finished());
}

TEST_F(VideoOutputTest, AClosedQueueShowsNothingMore) {
    push(0);
    push(40);
    frames->close();
    start();
    waitUntilFinished();
    EXPECT_THAT(handler->events(), ElementsAre("stopped"));
}

TEST_F(VideoOutputTest, AnAbortedQueueIsDrained) {
    push(0);
    push(0);
    frames->abort();
    start();
    waitUntilFinished();
    EXPECT_THAT(handler->shown(), ElementsAre(0, 0));
    EXPECT_EQ(handler->count("stopped"), 1);
}

TEST_F(VideoOutputTest, RebuildsTheConverterOnlyForGeometry) {
    start();
    push(0, 64, 48);
    push(0, 80, 48);
    auto sameSize = makePicture(0, 80, 48);
    (*sameSize)->sample_aspect_ratio = {4, 3};
    ASSERT_TRUE(frames->push(sameSize));
    push(0, 80, 48, AV_PIX_FMT_YUV422P);
    handler->waitForShown(4);
    EXPECT_EQ(handler->count("params 64x48"), 1);
    EXPECT_EQ(handler->count("params 80x48"), 2)
        << "for the width and for the pixel format, not for the aspect";
}

TEST_F(VideoOutputTest, DropsPicturesWithoutASize) {
    start();
    push(0);
    auto broken = makePicture(10);
    (*broken)->width = 0;
    ASSERT_TRUE(frames->push(broken));
    push(0);
    handler->waitForShown(2);
    EXPECT_THAT(handler->shown(), ElementsAre(0, 0));
    EXPECT_TRUE(
        log.contains("ko_player::VideoOutput::handleFirstFrame:  invalid:  fmt: 0, w: 0, h: 48, sar: 0/1"));
    EXPECT_EQ(handler->count("params 64x48"), 1) << "the converter stays";
}

TEST_F(VideoOutputTest, AConverterThatCannotBeBuiltEndsTheTask) {
    handler->answerParams = [](const VideoParams&, VideoParams&) -> std::uint8_t* { return nullptr; };
    start();
    push(0);
    waitUntilFinished();
    EXPECT_TRUE(
        log.contains("ko_player::VideoOutput::showTask: exception: VideoConvert: sws creating failed"));
    EXPECT_EQ(handler->count("stopped"), 1);
    EXPECT_TRUE(frames->isEnded());
}

TEST_F(VideoOutputTest, APictureThatCannotBeConvertedIsTimedButNotShown) {
    start();
    push(0);
    handler->waitForShown(1);
    auto empty = makePicture(40);
    std::uint8_t* planes[4];
    std::copy_n((*empty)->data, 4, planes);
    std::fill_n((*empty)->data, 4, nullptr);
    ASSERT_TRUE(frames->push(empty));
    state->newestPushedMs = 40;
    passSleep(milliseconds(40));
    push(80);
    passSleep(milliseconds(40));
    handler->waitForShown(2);
    EXPECT_THAT(handler->shown(), ElementsAre(0, 80));
    EXPECT_EQ(handler->count("lock"), 3);
    EXPECT_EQ(handler->count("unlock"), 3);
    EXPECT_TRUE(log.contains("conversion failed: Invalid argument"));
}

TEST_F(VideoOutputTest, AUsersPauseResetsTheClock) {
    start();
    push(0);
    handler->waitForShown(1);
    clock.waitForWaiters(1);
    pause->set(PauseReason::User);
    push(40);
    waitUntilPaused();
    clock.advance(milliseconds(1500));
    pause->clear(PauseReason::User);
    handler->waitForShown(2);
    EXPECT_TRUE(log.contains("Resync after pause"));
    // Anchored at 40 now: the next one is due 40 ms after it.
    push(80);
    handler->waitForEvent("unlock", 3);
    clock.waitForWaiters(1);
    EXPECT_EQ(clock.earliestDeadline() - clock.now(), milliseconds(40));
}

TEST_F(VideoOutputTest, ABufferingPauseKeepsTheClock) {
    start();
    push(0);
    handler->waitForShown(1);
    clock.waitForWaiters(1);
    pause->set(PauseReason::Buffering);
    push(40);
    waitUntilPaused();
    clock.advance(milliseconds(1500));
    pause->clear(PauseReason::Buffering);
    handler->waitForShown(2);
    EXPECT_FALSE(log.contains("Resync after pause"));
    // Late now: the spacing counts from the release at 1500 ms.
    push(80);
    handler->waitForEvent("unlock", 3);
    clock.waitForWaiters(1);
    EXPECT_EQ(clock.earliestDeadline() - clock.now(), milliseconds(40));
}

TEST_F(VideoOutputTest, NoTimeoutRunsDuringAPause) {
    start(seconds(5), seconds(3));
    pause->set(PauseReason::User);
    push(0);
    waitUntilPaused();
    clock.advance(seconds(60));
    pause->clear(PauseReason::User);
    handler->waitForShown(1);
    clock.waitForWaiters(1);
    EXPECT_EQ(clock.earliestDeadline() - clock.now(), seconds(3));
    EXPECT_EQ(handler->count("timeout"), 0);
}

TEST_F(VideoOutputTest, DeliversMetadataWithThePictureItBelongsTo) {
    metadata->pushReplacing(Metadata{0, 0, 777, 0});
    metadata->pushReplacing(Metadata{5, 6, 0, 0});
    metadata->pushReplacing(Metadata{5, 0, 0, 0});
    metadata->pushReplacing(Metadata{7, 8, 888, 10});
    metadata->pushReplacing(Metadata{9, 9, 0, 50});
    start();
    push(0);
    push(40);
    push(80);
    passSleep(milliseconds(40));
    handler->waitForShown(2);
    passSleep(milliseconds(40));
    handler->waitForShown(3);
    handler->waitForEvent("pair 9 9");
    EXPECT_THAT(handler->events(),
                ElementsAre("params 64x48", "lock", "unlock", "frame 0", "value 777", "pair 5 6", "lock",
                            "unlock", "frame 40", "value 888", "lock", "unlock", "frame 80", "pair 9 9"));
}

TEST_F(VideoOutputTest, JoiningFromItsOwnThreadIsAnError) {
    handler->timeoutAnswer = [this] {
        EXPECT_THROW(output->join(), std::system_error);
        return false;
    };
    start();
    clock.waitForWaiters(1);
    clock.advance(seconds(5));
    waitUntilFinished();
}

TEST_F(VideoOutputTest, RecordsWhatIsShownAndWhenForSoundThatKeepsStep) {
    const auto record = std::make_shared<ShownRecord>();
    state = std::make_shared<VideoState>(pause, record);
    const auto begin = clock.now();
    start();
    push(1000);
    handler->waitForShown(1);
    EXPECT_EQ(record->last(), (ShownPicture{1000, begin}));
    push(1040);
    passSleep(milliseconds(40));
    handler->waitForShown(2);
    EXPECT_EQ(record->last(), (ShownPicture{1040, begin + milliseconds(40)}));
    pause->set(PauseReason::User);
    push(1080);
    waitUntilPaused();
    EXPECT_EQ(record->last(), std::nullopt);
    pause->clear(PauseReason::User);
    handler->waitForShown(3);
    EXPECT_EQ(record->last(), (ShownPicture{1080, begin + milliseconds(40)}));
}

} // namespace
} // namespace ko_player
