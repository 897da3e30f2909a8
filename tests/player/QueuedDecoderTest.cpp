#include "player/QueuedDecoder.h"
#include "Packets.h"
#include "support/LogCapture.h"
#include "support/media/Clip.h"

extern "C" {
#include <libavutil/frame.h>
}

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

namespace ko_player {
namespace {

using details::Blocking;
using details::PushResult;
using mediaworker::test::LogCapture;
using mediaworker::test::makePacket;
using mediaworker::test::makeRawPicture;

class QueuedDecoderTest : public testing::Test {
protected:
    void start(const AVCodecParameters& parameters, DecodeRules rules = {}) {
        decoder = std::make_unique<QueuedDecoder>(
            std::make_unique<ff_wrap::Decoder>(&parameters, AVRational{1, 1000}), packets, frames,
            "test decoder", rules);
    }
    void startVideo(DecodeRules rules = {}) { start(*mediaworker::test::rawVideoParameters(), rules); }
    /// The times of all frames until the decoder ends.
    std::vector<std::int64_t> times() {
        std::vector<std::int64_t> found;
        while (const auto frame = frames->waitPop()) {
            found.push_back((**frame)->pts);
        }
        return found;
    }

    LogCapture log;
    std::shared_ptr<PacketChannel> packets = std::make_shared<PacketChannel>(0x800000);
    std::shared_ptr<FrameQueue> frames = std::make_shared<FrameQueue>(4);
    std::unique_ptr<QueuedDecoder> decoder;
};

TEST_F(QueuedDecoderTest, StampsFramesWithTheDecodeTime) {
    startVideo();
    const auto packet = makeRawPicture(1234);
    (*packet)->pts = 99;
    ASSERT_EQ(packets->push(packet, Blocking::Yes), PushResult::Pushed);
    const auto frame = frames->waitPop();
    ASSERT_TRUE(frame);
    EXPECT_EQ((**frame)->pts, 1234);
    EXPECT_EQ((**frame)->width, mediaworker::test::kRawWidth);
}

TEST_F(QueuedDecoderTest, ClosingDeliversEverythingThenEnds) {
    startVideo();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(packets->push(makeRawPicture(i * 40), Blocking::Yes), PushResult::Pushed);
    }
    packets->close();
    decoder->join();
    EXPECT_TRUE(log.contains("ko_player::QueuedDecoder::decodeTask: is finished"));
    for (int i = 0; i < 3; ++i) {
        const auto frame = frames->waitPop();
        ASSERT_TRUE(frame);
        EXPECT_EQ((**frame)->pts, i * 40);
    }
    EXPECT_FALSE(frames->waitPop()) << "aborted and drained";
    EXPECT_EQ(packets->push(makeRawPicture(0), Blocking::Yes), PushResult::Ended);
}

TEST_F(QueuedDecoderTest, TheFifthPictureWaitsForTheOutput) {
    startVideo();
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(packets->push(makeRawPicture(i), Blocking::Yes), PushResult::Pushed);
    }
    // Four in the queue, one in the decoder's hands: five packets are left.
    while (packets->bytesHeld() > 5U * mediaworker::test::kRawPictureBytes) {
        std::this_thread::yield();
    }
    EXPECT_EQ(frames->size(), 4U);
    EXPECT_TRUE(frames->waitPop());
    while (packets->bytesHeld() > 4U * mediaworker::test::kRawPictureBytes) {
        std::this_thread::yield();
    }
    EXPECT_EQ(packets->bytesHeld(), 4U * mediaworker::test::kRawPictureBytes);
}

TEST_F(QueuedDecoderTest, EndsWhenTheConsumerIsGone) {
    frames->close();
    startVideo();
    ASSERT_EQ(packets->push(makeRawPicture(0), Blocking::Yes), PushResult::Pushed);
    decoder->join();
    EXPECT_TRUE(packets->isStopped());
}

TEST_F(QueuedDecoderTest, DestructionAbandonsWhatIsQueued) {
    startVideo();
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(packets->push(makeRawPicture(i), Blocking::Yes), PushResult::Pushed);
    }
    decoder.reset();
    EXPECT_TRUE(packets->isStopped());
    EXPECT_TRUE(frames->isEnded());
}

TEST_F(QueuedDecoderTest, LogsPacketsThatTheCodecRefusesAndGoesOn) {
    startVideo();
    ASSERT_EQ(packets->push(makePacket(0, 7), Blocking::Yes), PushResult::Pushed); // too short for a picture
    ASSERT_EQ(packets->push(makeRawPicture(40), Blocking::Yes), PushResult::Pushed);
    const auto frame = frames->waitPop();
    ASSERT_TRUE(frame);
    EXPECT_EQ((**frame)->pts, 40);
    int errors = 0;
    for (const auto& line : log.lines()) {
        errors += line.starts_with("ko_player::QueuedDecoder::decode: sendPacket error: ") ||
                          line.starts_with("ko_player::QueuedDecoder::decode: readFrame err: ")
                      ? 1
                      : 0;
    }
    EXPECT_EQ(errors, 1);
}

TEST_F(QueuedDecoderTest, AnEmptyPacketIsTheEndOfTheStream) {
    start(*mediaworker::test::alawParameters());
    ASSERT_EQ(packets->push(std::make_shared<ff_wrap::Packet>(), Blocking::Yes), PushResult::Pushed);
    decoder->join();
    EXPECT_TRUE(log.contains("ko_player::QueuedDecoder::decode: readFrame eof"));
    EXPECT_TRUE(packets->isStopped());
}

TEST_F(QueuedDecoderTest, DecodesSound) {
    start(*mediaworker::test::alawParameters());
    ASSERT_EQ(packets->push(makePacket(500, 160, 0xD5), Blocking::Yes), PushResult::Pushed);
    const auto frame = frames->waitPop();
    ASSERT_TRUE(frame);
    EXPECT_EQ((**frame)->nb_samples, 160);
    EXPECT_EQ((**frame)->sample_rate, 8000);
    EXPECT_EQ((**frame)->pts, 500);
}

// --- presentation times, and the end

constexpr DecodeRules kStandard = decodeRulesOf(FlvReading::Standard);

/// A stream with pictures out of order, as packets.
class BFrames {
public:
    BFrames() {
        mediaworker::test::ClipSpec spec;
        spec.bFrames = 2;
        clip_ = mediaworker::test::encode(spec);
        parameters = ff_wrap::makeCodecParameters();
        parameters->codec_type = AVMEDIA_TYPE_VIDEO;
        parameters->codec_id = AV_CODEC_ID_H264;
        ff_wrap::allocExtradata(*parameters, clip_.videoConfig.size());
        std::copy(clip_.videoConfig.begin(), clip_.videoConfig.end(), parameters->extradata);
    }

    [[nodiscard]] std::shared_ptr<ff_wrap::Packet> packet(std::size_t i) const {
        const auto& source = clip_.video.at(i);
        auto packet = makePacket(source.dtsMs, static_cast<int>(source.bytes.size()));
        std::copy(source.bytes.begin(), source.bytes.end(), (*packet)->data);
        (*packet)->pts = source.ptsMs;
        (*packet)->flags |= source.isKey ? AV_PKT_FLAG_KEY : 0;
        return packet;
    }
    [[nodiscard]] std::size_t size() const { return clip_.video.size(); }

    ff_wrap::CodecParametersPtr parameters;

private:
    mediaworker::test::Clip clip_;
};

/// 80, 120, 160 and so on: the pictures are 40 ms apart, and two are out of order.
std::vector<std::int64_t> evenTimes(std::size_t count) {
    std::vector<std::int64_t> times(count);
    for (std::size_t i = 0; i < count; ++i) {
        times[i] = 80 + 40 * static_cast<std::int64_t>(i);
    }
    return times;
}

TEST_F(QueuedDecoderTest, ShowsEveryPictureAtItsPresentationTime) {
    const BFrames source;
    start(*source.parameters, kStandard);
    std::jthread feeder([&] {
        for (std::size_t i = 0; i < source.size(); ++i) {
            packets->push(source.packet(i), Blocking::Yes);
        }
        packets->close();
    });
    EXPECT_EQ(times(), evenTimes(source.size()));
}

TEST_F(QueuedDecoderTest, KeepsTheLastPicturesWithoutTheRule) {
    const BFrames source;
    start(*source.parameters);
    std::jthread feeder([&] {
        for (std::size_t i = 0; i < source.size(); ++i) {
            packets->push(source.packet(i), Blocking::Yes);
        }
        packets->close();
    });
    EXPECT_EQ(times().size(), source.size() - 2);
}

TEST_F(QueuedDecoderTest, GoesByDecodeTimesWherePresentationTimesAreNoOrder) {
    const BFrames source;
    start(*source.parameters, kStandard);
    std::jthread feeder([&] {
        for (std::size_t i = 0; i < source.size(); ++i) {
            const auto packet = source.packet(i);
            (*packet)->pts = (*packet)->dts; // as writers do that know no composition times
            packets->push(packet, Blocking::Yes);
        }
        packets->close();
    });
    const auto found = times();
    EXPECT_EQ(found.size(), source.size());
    EXPECT_TRUE(std::is_sorted(found.begin(), found.end()));
}

TEST_F(QueuedDecoderTest, GoesOnBehindAnEmptyPacketThatIsNotTheEnd) {
    const BFrames source;
    start(*source.parameters, kStandard);
    std::jthread feeder([&] {
        for (std::size_t i = 0; i < 5; ++i) {
            packets->push(source.packet(i), Blocking::Yes);
        }
        packets->push(std::make_shared<ff_wrap::Packet>(), Blocking::Yes);
        packets->push(source.packet(25), Blocking::Yes); // the next key frame
        packets->close();
    });
    std::vector<std::int64_t> expected;
    for (const std::size_t i : {0U, 1U, 2U, 3U, 4U, 25U}) {
        expected.push_back((*source.packet(i))->pts);
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(times(), expected);
}

TEST_F(QueuedDecoderTest, GivesNothingMoreAfterAStop) {
    const BFrames source;
    start(*source.parameters, kStandard);
    for (std::size_t i = 0; i < 10; ++i) {
        packets->push(source.packet(i), Blocking::Yes);
    }
    decoder->stop();
    decoder->join();
    EXPECT_LE(times().size(), 5U);
}

} // namespace
} // namespace ko_player
