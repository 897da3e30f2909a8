#include "player/AudioPipeline.h"
#include "FakeHandlers.h"
#include "Packets.h"
#include "support/LogCapture.h"
#include "support/ManualClock.h"

#include <gtest/gtest.h>

#include <chrono>

namespace ko_player {
namespace {

using details::Blocking;
using details::PushResult;
using mediaworker::test::FakeAudioHandler;
using mediaworker::test::LogCapture;
using mediaworker::test::makePacket;
using mediaworker::test::ManualClock;

class AudioPipelineTest : public testing::Test {
protected:
    ~AudioPipelineTest() override {
        pause->stop();
        pipeline.close();
        while (pipeline.isOpened() && !log.contains("audioTask is finished")) {
            clock.advance(std::chrono::milliseconds(400));
        }
    }
    std::string openFailure(const AVCodecParameters& parameters) {
        try {
            pipeline.open(&parameters);
            return "none";
        } catch (const std::exception& error) {
            return error.what();
        }
    }

    LogCapture log;
    ManualClock clock;
    ff_wrap::CodecParametersPtr alaw = mediaworker::test::alawParameters();
    std::shared_ptr<details::PauseCtrl> pause = std::make_shared<details::PauseCtrl>();
    std::shared_ptr<PlayerState> state = std::make_shared<PlayerState>(pause);
    std::shared_ptr<FakeAudioHandler> handler = std::make_shared<FakeAudioHandler>();
    AudioPipeline pipeline{handler, state, clock};
};

TEST_F(AudioPipelineTest, AsksTheHandlerForTheFormat) {
    AudioParams asked;
    handler->answerParams = [&](const AudioParams& in, AudioParams& out) {
        EXPECT_EQ(out, AudioParams{}) << "format -1 and zeros";
        asked = in;
        out = in;
        return true;
    };
    const auto stereo = mediaworker::test::alawParameters(16000, 2);
    EXPECT_TRUE(pipeline.open(stereo.get()));
    EXPECT_EQ(asked.format, AV_SAMPLE_FMT_S16);
    EXPECT_EQ(asked.sampleRate, 16000);
    EXPECT_EQ(asked.channels, 2);
    EXPECT_EQ(asked.channelLayout, std::uint64_t{AV_CH_LAYOUT_STEREO});
    EXPECT_EQ(asked.frameSize, 0);
    EXPECT_EQ(asked.bytesPerSecond, 0);
    EXPECT_TRUE(log.contains("ko_player::AudioPipeline::open: AudioPipeline has been openned"));
}

TEST_F(AudioPipelineTest, FillsInAMissingLayout) {
    AudioParams asked;
    handler->answerParams = [&](const AudioParams& in, AudioParams& out) {
        asked = in;
        out = in;
        return true;
    };
    alaw->ch_layout.order = AV_CHANNEL_ORDER_UNSPEC;
    alaw->ch_layout.u.mask = 0;
    alaw->ch_layout.nb_channels = 2;
    EXPECT_TRUE(pipeline.open(alaw.get()));
    EXPECT_EQ(asked.channels, 2);
    EXPECT_EQ(asked.channelLayout, std::uint64_t{AV_CH_LAYOUT_STEREO});
}

TEST_F(AudioPipelineTest, StaysClosedWhenTheHandlerRefuses) {
    handler->answerParams = [](const AudioParams&, AudioParams&) { return false; };
    EXPECT_FALSE(pipeline.open(alaw.get()));
    EXPECT_FALSE(pipeline.isOpened());
    EXPECT_TRUE(
        log.contains("ko_player::AudioPipeline::getOutParams: outHandler.onAudioParams return false"));
    handler->answerParams = FakeAudioHandler().answerParams;
    EXPECT_TRUE(pipeline.open(alaw.get())) << "a refusal leaves no decoder behind";
}

TEST_F(AudioPipelineTest, RefusesAnAnswerThatIsNoFormat) {
    handler->answerParams = [](const AudioParams&, AudioParams&) { return true; };
    EXPECT_EQ(openFailure(*alaw), "AudioPipeline: bad out parameters");
    EXPECT_FALSE(pipeline.isOpened());
}

TEST_F(AudioPipelineTest, RefusesRatesThatNothingPlays) {
    int asked = 0;
    handler->answerParams = [&](const AudioParams& in, AudioParams& out) {
        ++asked;
        out = in;
        return true;
    };
    for (const int rate : {1, 2, 3, 4, 3999, 192'001, 1'000'000'000}) {
        const auto parameters = mediaworker::test::alawParameters(rate);
        EXPECT_EQ(openFailure(*parameters), "AudioPipeline: bad out parameters") << rate;
        EXPECT_FALSE(pipeline.isOpened()) << rate;
    }
    EXPECT_EQ(asked, 0) << "the device is not told of them";
    handler->answerParams = [](const AudioParams& in, AudioParams& out) {
        out = in;
        out.sampleRate = 4;
        return true;
    };
    EXPECT_EQ(openFailure(*alaw), "AudioPipeline: bad out parameters") << "nor has it such";
}

TEST_F(AudioPipelineTest, OpensTheLowestRate) {
    EXPECT_TRUE(pipeline.open(mediaworker::test::alawParameters(4000).get()));
}

TEST_F(AudioPipelineTest, OpensTheHighestRate) {
    EXPECT_TRUE(pipeline.open(mediaworker::test::alawParameters(192'000).get()));
}

TEST_F(AudioPipelineTest, OpensOnce) {
    EXPECT_TRUE(pipeline.open(alaw.get()));
    EXPECT_EQ(openFailure(*alaw), "AudioPipeline::open second call");
}

TEST_F(AudioPipelineTest, ReportsACodecThatCannotBeOpened) {
    alaw->codec_id = AV_CODEC_ID_NONE;
    EXPECT_TRUE(openFailure(*alaw).starts_with("Decoder.ctor: avcodec_open failed: "));
}

TEST_F(AudioPipelineTest, RunsFromPacketToPart) {
    EXPECT_TRUE(pipeline.open(alaw.get()));
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(pipeline.push(makePacket(i * 20, 160, 0xD5), Blocking::Yes), PushResult::Pushed);
    }
    handler->waitForParts(1);
    EXPECT_EQ(handler->parts()[0].size(), 6400U);
}

TEST_F(AudioPipelineTest, LogsEveryThousandthPacket) {
    for (int i = 0; i < 1999; ++i) {
        pipeline.countPacket();
    }
    EXPECT_EQ(log.lines().size(), 1U);
    pipeline.countPacket();
    EXPECT_TRUE(log.contains("ko_player::AudioPipeline::push: AudioPipeline pack count: 1000"));
    EXPECT_TRUE(log.contains("ko_player::AudioPipeline::push: AudioPipeline pack count: 2000"));
}

} // namespace
} // namespace ko_player
