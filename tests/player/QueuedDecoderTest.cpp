#include "player/QueuedDecoder.h"
#include "Packets.h"
#include "support/LogCapture.h"

extern "C" {
#include <libavutil/frame.h>
}

#include <gtest/gtest.h>

#include <thread>

namespace ko_player {
namespace {

using details::Blocking;
using details::PushResult;
using mediaworker::test::LogCapture;
using mediaworker::test::makePacket;
using mediaworker::test::makeRawPicture;

class QueuedDecoderTest : public testing::Test {
protected:
    void start(const AVCodecParameters& parameters) {
        decoder = std::make_unique<QueuedDecoder>(
            std::make_unique<ff_wrap::Decoder>(&parameters, AVRational{1, 1000}), packets, frames,
            "test decoder");
    }
    void startVideo() { start(*mediaworker::test::rawVideoParameters()); }

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

} // namespace
} // namespace ko_player
