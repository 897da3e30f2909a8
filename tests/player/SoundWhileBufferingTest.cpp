#include "FakeHandlers.h"
#include "player/Player.h"
#include "support/FlvWriter.h"
#include "support/LogCapture.h"
#include "support/ManualClock.h"
#include "support/media/Clip.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace ko_player {
namespace {

using namespace std::chrono_literals;
using namespace mediaworker::test;

constexpr std::uint8_t kALaw = 0x70;
constexpr int kRate = 192'000; // Hz: what is much soon plays out
/// No wait is to end by itself.
constexpr FrameTimeouts kNever{100'000'000s, 100'000'000s};

struct Row {
    const char* name;
    Options options;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

/// Pictures at 0, 40, 80 and so on, and sound that comes in far larger pieces than it is played.
class SoundWhileBuffering : public testing::TestWithParam<Row> {
protected:
    ~SoundWhileBuffering() override {
        const std::jthread time([this](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                clock.advance(1ms);
                std::this_thread::yield();
            }
        });
        player.reset();
    }

    void start() {
        player->start(Buffering::On, kNever);
        FlvWriter head;
        head.header();
        head.metadata(0, {{"videocodecid", 7},
                          {"width", 320},
                          {"height", 180},
                          {"audiocodecid", kALaw},
                          {"audiosamplerate", kRate},
                          {"audiochannels", 1}});
        head.video(0, VideoCodec::Avc, true, FlvWriter::kSequenceHeader, clip.videoConfig);
        feed(head);
    }
    void feed(FlvWriter& writer) {
        const auto bytes = writer.take();
        ASSERT_TRUE(player->consume(bytes.data(), bytes.size()));
    }
    void feedPictures(std::size_t count) {
        FlvWriter writer;
        for (std::size_t i = 0; i < count; ++i, ++fed) {
            writer.video(static_cast<std::uint32_t>(fed * 40), VideoCodec::Avc, clip.video[fed].isKey,
                         FlvWriter::kFrames, clip.video[fed].bytes);
        }
        feed(writer);
    }
    /// More than the channel and the frame queue hold, in one go.
    void feedTooMuchSound() {
        const std::vector<std::uint8_t> piece(40'000, 0xD5);
        FlvWriter writer;
        for (int i = 0; i < 400; ++i) {
            writer.audio(static_cast<std::uint32_t>(fed * 40), kALaw, piece);
        }
        feed(writer);
    }
    /// Lets time pass until all pictures were shown.
    void showAll() {
        while (video->shown().size() < fed) {
            clock.advance(1ms);
            std::this_thread::yield();
        }
    }
    [[nodiscard]] int countEnds() const {
        const auto lines = log.lines();
        return static_cast<int>(std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
            return line.starts_with("ko_player::Player::finishBuffering: ");
        }));
    }

    LogCapture log;
    ManualClock clock;
    const Clip clip = [] {
        ClipSpec spec;
        spec.frames = 125;
        spec.zeroLatency = true;
        return encode(spec);
    }();
    std::shared_ptr<FakeVideoHandler> video = std::make_shared<FakeVideoHandler>();
    std::shared_ptr<FakeAudioHandler> audio = std::make_shared<FakeAudioHandler>();
    std::unique_ptr<Player> player = std::make_unique<Player>(video, audio, clock, GetParam().options);
    std::size_t fed = 0; ///< pictures
};

TEST_P(SoundWhileBuffering, EndsTheFirstPeriodWhenItIsTooMuch) {
    start();
    feedPictures(10);
    feedTooMuchSound();
    EXPECT_TRUE(log.contains("ko_player::Player::finishBuffering: buf end: p: 0, l: 360"));
    EXPECT_GT(log.count("ko_player::Player::pushAudio: buf video, ignore audio"), 0);
    showAll();
    feedPictures(10);
    showAll();
    EXPECT_EQ(countEnds(), 1);
}

TEST_P(SoundWhileBuffering, EndsALaterPeriodWhenItIsTooMuch) {
    start();
    feedPictures(26); // ends the first period at l = 1000: the next may begin from p = 2000 on
    for (int i = 0; i < 25; ++i) {
        showAll();
        feedPictures(1);
    }
    showAll();
    feedPictures(1);
    ASSERT_TRUE(log.contains("ko_player::Player::beginBuffering: buf start: p: 2000, l: 2040"));
    feedPictures(2);
    EXPECT_EQ(countEnds(), 1);
    feedTooMuchSound();
    EXPECT_TRUE(log.contains("ko_player::Player::finishBuffering: buf end: p: 2000, l: 2120"));
    showAll();
    EXPECT_EQ(countEnds(), 2);
}

TEST_P(SoundWhileBuffering, LeavesThePeriodAloneWhenItFits) {
    start();
    feedPictures(10);
    FlvWriter writer;
    const std::vector<std::uint8_t> piece(40'000, 0xD5);
    for (int i = 0; i < 20; ++i) {
        writer.audio(360, kALaw, piece);
    }
    feed(writer);
    EXPECT_EQ(countEnds(), 0);
    EXPECT_EQ(log.count("ko_player::Player::pushAudio: buf video, ignore audio"), 0);
    feedPictures(16);
    EXPECT_TRUE(log.contains("ko_player::Player::finishBuffering: buf end: p: 0, l: 1000"));
}

TEST_P(SoundWhileBuffering, LetsTheEndOfTheStreamThrough) {
    start();
    feedPictures(10);
    feedTooMuchSound();
    const std::jthread time([this](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            clock.advance(1ms);
            std::this_thread::yield();
        }
    });
    player->stop();
    EXPECT_EQ(video->shown().size(), 10U);
    EXPECT_TRUE(log.contains("audioTask is finished"));
}

INSTANTIATE_TEST_SUITE_P(
    All, SoundWhileBuffering,
    testing::Values(Row{"Strict", {}}, Row{"Standard", {.flv = FlvReading::Standard}},
                    Row{"InStep", {.sync = SyncPolicy::ByTimeStamps}},
                    Row{"StandardInStep", {.flv = FlvReading::Standard, .sync = SyncPolicy::ByTimeStamps}}),
    [](const auto& test) { return test.param.name; });

} // namespace
} // namespace ko_player
