#include "player/VideoPipeline.h"
#include "FakeHandlers.h"
#include "Packets.h"
#include "support/LogCapture.h"
#include "support/ManualClock.h"

extern "C" {
#include <libavutil/avutil.h>
}

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace ko_player {
namespace {

using details::Blocking;
using mediaworker::test::FakeVideoHandler;
using mediaworker::test::LogCapture;
using mediaworker::test::makeRawPicture;
using mediaworker::test::ManualClock;
using PushResult = VideoPipeline::PushResult;

/// Seconds; time runs faster than pictures are decoded here, and no wait is to end by itself.
constexpr std::chrono::seconds kNever{100'000'000};

class VideoPipelineTest : public testing::Test {
protected:
    ~VideoPipelineTest() override {
        pause->stop();
        pipeline.close();
        while (started && !log.contains("showTask is finished")) {
            clock.advance(std::chrono::seconds(2));
        }
    }
    void startAndOpen() {
        pipeline.start(kNever, kNever);
        started = true;
        pipeline.open(parameters.get());
    }
    /// Lets time pass until that many pictures were shown.
    void showAll(std::size_t pictures) {
        while (handler->shown().size() < pictures) {
            clock.advance(std::chrono::milliseconds(1));
            std::this_thread::yield();
        }
    }

    LogCapture log;
    ManualClock clock;
    bool started = false;
    ff_wrap::CodecParametersPtr parameters = mediaworker::test::rawVideoParameters();
    std::shared_ptr<details::PauseCtrl> pause = std::make_shared<details::PauseCtrl>();
    std::shared_ptr<VideoState> state = std::make_shared<VideoState>(pause);
    std::shared_ptr<FakeVideoHandler> handler = std::make_shared<FakeVideoHandler>();
    VideoPipeline pipeline{handler, state, clock};
};

/// A picture with both stamps.
std::shared_ptr<ff_wrap::Packet> makeRawPicture(std::int64_t dts, std::int64_t pts) {
    auto packet = mediaworker::test::makeRawPicture(dts);
    (*packet)->pts = pts;
    return packet;
}

/// The same pipeline by presentation times. Uncompressed pictures leave their decoder in the order they came,
/// so the stamps alone are out of order here.
class PresentationTimesTest : public testing::Test {
protected:
    void push(std::int64_t dts, std::int64_t pts) {
        packet = makeRawPicture(dts, pts);
        EXPECT_EQ(pipeline.push(packet, Blocking::No), PushResult::Pushed);
    }
    void SetUp() override {
        pause->set(details::PauseReason::User); // nothing is shown
        pipeline.start(kNever, kNever);
        pipeline.open(parameters.get());
    }
    void TearDown() override {
        pause->stop();
        pipeline.close();
        while (!log.contains("showTask is finished")) {
            clock.advance(std::chrono::seconds(2));
        }
    }

    LogCapture log;
    ManualClock clock;
    ff_wrap::CodecParametersPtr parameters = mediaworker::test::rawVideoParameters();
    std::shared_ptr<details::PauseCtrl> pause = std::make_shared<details::PauseCtrl>();
    std::shared_ptr<VideoState> state = std::make_shared<VideoState>(pause);
    std::shared_ptr<FakeVideoHandler> handler = std::make_shared<FakeVideoHandler>();
    VideoPipeline pipeline{handler, state, clock, decodeRulesOf(FlvReading::Standard)};
    std::shared_ptr<ff_wrap::Packet> packet; ///< the last one pushed
};

std::string openFailure(VideoPipeline& pipeline, const AVCodecParameters& parameters) {
    try {
        pipeline.open(&parameters);
        return "none";
    } catch (const std::logic_error& error) {
        return error.what();
    }
}

TEST_F(VideoPipelineTest, OpensOnceAndAfterTheStart) {
    EXPECT_EQ(openFailure(pipeline, *parameters), "VideoPipeline::open when not started");
    startAndOpen();
    EXPECT_EQ(openFailure(pipeline, *parameters), "VideoPipeline::open second call");
}

TEST_F(VideoPipelineTest, TellsTheHandlerTheExpectedSizeUntilItIsOpened) {
    pipeline.expectPicture(64, 48);
    startAndOpen();
    pipeline.expectPicture(16, 16);
    EXPECT_EQ(handler->count("expect 64x48"), 1);
    EXPECT_EQ(handler->count("expect 16x16"), 0);
}

TEST_F(VideoPipelineTest, DropsPacketsBeforeItIsOpened) {
    pipeline.start(kNever, kNever);
    started = true;
    EXPECT_EQ(pipeline.push(makeRawPicture(100), Blocking::Yes), PushResult::NotOpened);
    EXPECT_EQ(state->newestPushedMs, 0);
}

TEST_F(VideoPipelineTest, MakesTimeStampsMonotonic) {
    startAndOpen();
    for (const std::int64_t dts : {100, 90, 95}) {
        EXPECT_EQ(pipeline.push(makeRawPicture(dts), Blocking::Yes), PushResult::Pushed);
    }
    showAll(3);
    EXPECT_THAT(handler->shown(), testing::ElementsAre(100, 101, 102));
    EXPECT_EQ(state->newestPushedMs, 102);
    EXPECT_TRUE(log.contains("ko_player::VideoPipeline::push: video packet time is fixed from: 90, to: 101"));
    EXPECT_TRUE(log.contains("ko_player::VideoPipeline::push: video packet time is fixed from: 95, to: 102"));
}

TEST_F(VideoPipelineTest, KeepsEqualTimeStamps) {
    startAndOpen();
    EXPECT_EQ(pipeline.push(makeRawPicture(100), Blocking::Yes), PushResult::Pushed);
    EXPECT_EQ(pipeline.push(makeRawPicture(100), Blocking::Yes), PushResult::Pushed);
    showAll(2);
    EXPECT_THAT(handler->shown(), testing::ElementsAre(100, 100));
}

TEST_F(VideoPipelineTest, LiftsNegativeAndMissingTimeStamps) {
    startAndOpen();
    constexpr std::int64_t kNone = std::numeric_limits<std::int64_t>::min();
    for (const std::int64_t dts : {std::int64_t{-40}, kNone, std::int64_t{0}}) {
        EXPECT_EQ(pipeline.push(makeRawPicture(dts), Blocking::Yes), PushResult::Pushed);
    }
    showAll(3);
    EXPECT_THAT(handler->shown(), testing::ElementsAre(1, 2, 3));
}

TEST_F(VideoPipelineTest, TiesMetadataToTheNextPacket) {
    startAndOpen();
    pipeline.setPendingMetadata({5, 6, 0, 0});
    pipeline.setPendingMetadata({7, 8, 0, 0}); // replaces the one that waits
    EXPECT_EQ(pipeline.push(makeRawPicture(100), Blocking::Yes), PushResult::Pushed);
    EXPECT_EQ(pipeline.push(makeRawPicture(140), Blocking::Yes), PushResult::Pushed);
    showAll(2);
    handler->waitForEvent("pair 7 8");
    const auto events = handler->events();
    EXPECT_THAT(events, testing::IsSupersetOf({"frame 100", "pair 7 8", "frame 140"}));
    EXPECT_EQ(handler->count("pair 7 8"), 1);
    EXPECT_EQ(handler->count("pair 5 6"), 0);
    EXPECT_LT(std::find(events.begin(), events.end(), "pair 7 8"),
              std::find(events.begin(), events.end(), "frame 140"));
}

TEST_F(VideoPipelineTest, NeverQueuesMetadataThatSaysNothing) {
    startAndOpen();
    pipeline.setPendingMetadata({0, -3, 0, 77});
    EXPECT_EQ(pipeline.push(makeRawPicture(100), Blocking::Yes), PushResult::Pushed);
    showAll(1);
    pipeline.close();
    pipeline.joinDecoder();
    pipeline.joinOutput();
    EXPECT_THAT(handler->events(),
                testing::ElementsAre("params 16x16", "lock", "unlock", "frame 100", "stopped"));
}

TEST_F(VideoPipelineTest, TheOldestOf151MetadataRecordsIsLost) {
    startAndOpen();
    pause->set(details::PauseReason::User);
    for (int i = 1; i <= 151; ++i) {
        pipeline.setPendingMetadata({0, 0, i, 0});
        ASSERT_EQ(pipeline.push(makeRawPicture(0), Blocking::Yes), PushResult::Pushed);
    }
    pause->clear(details::PauseReason::User);
    showAll(151);
    handler->waitForEvent("value 151");
    EXPECT_EQ(handler->count("value 1"), 0);
    EXPECT_EQ(handler->count("value 2"), 1);
}

TEST_F(VideoPipelineTest, TellsFullFromEnded) {
    startAndOpen();
    pause->set(details::PauseReason::User);
    auto result = PushResult::Pushed;
    // 8 MiB of pictures, and the few that the decoder takes.
    for (int i = 0; i < 30000 && result == PushResult::Pushed; ++i) {
        result = pipeline.push(makeRawPicture(0), Blocking::No);
    }
    EXPECT_EQ(result, PushResult::Full);
    pipeline.close();
    EXPECT_EQ(pipeline.push(makeRawPicture(0), Blocking::No), PushResult::Ended);
}

TEST_F(VideoPipelineTest, ClosingUnopenedEndsTheOutput) {
    pipeline.start(kNever, kNever);
    started = true;
    pipeline.close();
    pipeline.joinDecoder();
    pipeline.joinOutput();
    EXPECT_THAT(handler->events(), testing::ElementsAre("stopped"));
}

TEST_F(PresentationTimesTest, TheNewestIsTheLatestToBeShown) {
    push(0, 80);
    EXPECT_EQ(state->newestPushedMs, 80);
    push(40, 240);
    EXPECT_EQ(state->newestPushedMs, 240);
    push(80, 160);
    EXPECT_EQ(state->newestPushedMs, 240);
}

TEST_F(PresentationTimesTest, NothingIsAheadOfAStreamThatBeginsAnywhere) {
    push(1'800'000, 1'800'080);
    EXPECT_EQ(state->newestPushedMs, 1'800'080);
    EXPECT_EQ(state->lastShownMs, 1'800'080);
}

TEST_F(PresentationTimesTest, CorrectionsMoveBothStamps) {
    push(100, 180);
    push(90, 250);
    EXPECT_EQ((*packet)->dts, 101);
    EXPECT_EQ((*packet)->pts, 261);
    push(141, 141);
    EXPECT_EQ((*packet)->dts, 141);
    EXPECT_EQ((*packet)->pts, 141);
}

TEST_F(PresentationTimesTest, NegativeStampsAreKept) {
    push(-80, 0);
    EXPECT_EQ((*packet)->dts, -80);
    EXPECT_EQ((*packet)->pts, 0);
    push(-40, -40);
    EXPECT_EQ((*packet)->pts, -40);
    EXPECT_EQ(state->newestPushedMs, 0);
}

TEST_F(PresentationTimesTest, TheDecodeTimeServesWhereThereIsNoOther) {
    push(100, AV_NOPTS_VALUE);
    EXPECT_EQ(state->newestPushedMs, 100);
    push(90, AV_NOPTS_VALUE);
    EXPECT_EQ((*packet)->dts, 101);
    EXPECT_EQ((*packet)->pts, AV_NOPTS_VALUE);
}

} // namespace
} // namespace ko_player
