#include "player/Player.h"
#include "FakeHandlers.h"
#include "support/FlvWriter.h"
#include "support/LogCapture.h"
#include "support/ManualClock.h"
#include "support/media/Clip.h"
#include "support/media/FlvStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace ko_player {
namespace {

using namespace std::chrono_literals;

using mediaworker::test::AudioCodec;
using mediaworker::test::Clip;
using mediaworker::test::ClipSpec;
using mediaworker::test::encode;
using mediaworker::test::FakeAudioHandler;
using mediaworker::test::FakeVideoHandler;
using mediaworker::test::FlvOptions;
using mediaworker::test::FlvWriter;
using mediaworker::test::LogCapture;
using mediaworker::test::makeFlv;
using mediaworker::test::ManualClock;
using mediaworker::test::PieceKind;
using mediaworker::test::TimedBytes;
using mediaworker::test::VideoCodec;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// Lets time pass, a millisecond at a time, while it lives.
class RunningClock {
public:
    explicit RunningClock(ManualClock& clock)
        : thread_([this, &clock] {
              while (!stopping_) {
                  clock.advance(milliseconds(1));
                  std::this_thread::yield();
              }
          }) {}
    RunningClock(const RunningClock&) = delete;
    RunningClock& operator=(const RunningClock&) = delete;
    ~RunningClock() {
        stopping_ = true;
        thread_.join();
    }

private:
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

/// Time runs faster than pictures are decoded here, and no wait is to end by itself.
constexpr FrameTimeouts kNever{std::chrono::seconds(100'000'000), std::chrono::seconds(100'000'000)};

/// 25 pictures a second: the time stamps are 0, 40, 80 and so on.
class PlayerTest : public testing::Test {
protected:
    ~PlayerTest() override {
        const RunningClock running(clock);
        player.reset();
    }

    static ClipSpec spec(int frames, AudioCodec audio = AudioCodec::None) {
        ClipSpec spec;
        spec.frames = frames;
        spec.audio = audio;
        spec.zeroLatency = true;
        return spec;
    }
    void start(Buffering buffering, FrameTimeouts timeouts = kNever) { player->start(buffering, timeouts); }
    bool feed(const std::vector<std::uint8_t>& bytes) { return player->consume(bytes.data(), bytes.size()); }
    /// Feeds what comes before the first picture.
    void feedHead(const std::vector<TimedBytes>& pieces) {
        for (next = 0; next < pieces.size() && pieces[next].kind != PieceKind::Video; ++next) {
            ASSERT_TRUE(feed(pieces[next].bytes));
        }
    }
    void feedPieces(const std::vector<TimedBytes>& pieces, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_TRUE(feed(pieces.at(next++).bytes));
        }
    }
    /// Lets time pass until that many pictures were shown.
    void showUntil(std::size_t pictures) {
        while (video->shown().size() < pictures) {
            clock.advance(milliseconds(1));
            std::this_thread::yield();
        }
    }
    /// Whether nobody waits for an earlier time than that, once all threads have come to rest.
    [[nodiscard]] bool waitsOnlyBeyond(base::TimePoint time) const {
        const auto end = std::chrono::steady_clock::now() + 10s;
        while (clock.earliestDeadline() <= time) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }
    [[nodiscard]] bool buffers() const {
        return log.count("ko_player::Player::beginBuffering: buf start: p: 0, l: 0") > 0 &&
               countStarting("ko_player::Player::finishBuffering: ") == 0;
    }
    [[nodiscard]] int countStarting(std::string_view prefix) const {
        int count = 0;
        for (const auto& line : log.lines()) {
            count += line.starts_with(prefix) ? 1 : 0;
        }
        return count;
    }

    LogCapture log;
    ManualClock clock;
    std::shared_ptr<FakeVideoHandler> video = std::make_shared<FakeVideoHandler>();
    std::shared_ptr<FakeAudioHandler> audio = std::make_shared<FakeAudioHandler>();
    std::unique_ptr<Player> player = std::make_unique<Player>(video, audio, clock);
    std::size_t next = 0;
};

TEST_F(PlayerTest, WithoutBufferingShowsTheFirstPictureAtOnce) {
    const auto pieces = makeFlv(encode(spec(50)));
    start(Buffering::Off);
    feedHead(pieces);
    feedPieces(pieces, 1);
    video->waitForShown(1);
    EXPECT_EQ(countStarting("ko_player::Player::beginBuffering"), 0);
}

TEST_F(PlayerTest, TheFirstBufferingLastsASecondOfVideo) {
    const auto pieces = makeFlv(encode(spec(50)));
    start(Buffering::On);
    EXPECT_TRUE(log.contains("ko_player::Player::beginBuffering: buf start: p: 0, l: 0"));
    feedHead(pieces);
    feedPieces(pieces, 25); // up to 960
    EXPECT_TRUE(buffers());
    EXPECT_TRUE(video->shown().empty());
    feedPieces(pieces, 1); // 1000
    EXPECT_TRUE(log.contains("ko_player::Player::finishBuffering: buf end: p: 0, l: 1000"));
    video->waitForShown(1);
}

TEST_F(PlayerTest, BuffersAgainBehindTheGuardAndForHalfASecond) {
    const auto pieces = makeFlv(encode(spec(125)));
    start(Buffering::On);
    feedHead(pieces);
    feedPieces(pieces, 26); // ends at l = 1000: the guard is 2000
    showUntil(26);          // p = 1000
    // One at a time, each shown before the next comes: l - p is 40 at every push.
    for (std::size_t i = 27; i <= 51; ++i) {
        feedPieces(pieces, 1);
        showUntil(i);
    }
    EXPECT_EQ(countStarting("ko_player::Player::beginBuffering"), 1) << "p was below 2000 at each push";
    feedPieces(pieces, 1); // 2040, with p = 2000
    EXPECT_TRUE(log.contains("ko_player::Player::beginBuffering: buf start: p: 2000, l: 2040"));
    feedPieces(pieces, 11); // up to 2480
    EXPECT_EQ(countStarting("ko_player::Player::finishBuffering"), 1);
    feedPieces(pieces, 1); // 2520
    EXPECT_TRUE(log.contains("ko_player::Player::finishBuffering: buf end: p: 2000, l: 2520"));
}

TEST_F(PlayerTest, ABufferingPeriodIsCanceledByItsTimeout) {
    const auto pieces = makeFlv(encode(spec(50)));
    start(Buffering::On, {100'000s, 3s});
    feedHead(pieces);
    feedPieces(pieces, 3);
    clock.waitForWaiters(1); // the watcher
    while (!log.contains("ko_player::Player::cancelBuffering: buf canceled: 1")) {
        clock.advance(milliseconds(500));
        std::this_thread::yield();
    }
    video->waitForShown(1);
    EXPECT_TRUE(log.contains("ko_player::Player::finishBuffering: buf end: p: 0, l: 80"));
}

/// Holds the watcher in the line that it writes when a time-out fires, before it asks the player anything.
class HeldWatcher final : public base::LogSink {
public:
    HeldWatcher() : previous_(base::exchangeLogSink(this)) {}
    ~HeldWatcher() override { base::exchangeLogSink(previous_); }

    void write(std::string_view text) override {
        if (!text.starts_with("ko_player::Player::cancelBuffering: ")) {
            return;
        }
        isHeld_ = true;
        // Until the player's end is well on its way.
        for (int i = 0; i < 300 || !mayGo_; ++i) {
            std::this_thread::yield();
        }
    }
    void waitUntilHeld() const {
        while (!isHeld_) {
            std::this_thread::yield();
        }
    }
    void letGo() { mayGo_ = true; }

private:
    base::LogSink* const previous_;
    std::atomic<bool> isHeld_{false};
    std::atomic<bool> mayGo_{false};
};

TEST_F(PlayerTest, EndsWhileABufferingPeriodIsCanceled) {
    for (int i = 0; i < 3; ++i) {
        player = std::make_unique<Player>(video, audio, clock);
        HeldWatcher watcher;
        start(Buffering::On, {100'000s, 3s});
        clock.waitForDeadline(clock.now() + 3s);
        clock.advance(3s);
        watcher.waitUntilHeld();
        watcher.letGo();
        player.reset();
    }
}

TEST_F(PlayerTest, AnEndedBufferingPeriodIsNotCanceled) {
    const auto pieces = makeFlv(encode(spec(50)));
    const base::TimePoint begin = clock.now();
    start(Buffering::On, {100'000s, 100'000s});
    feedHead(pieces);
    feedPieces(pieces, 26);
    showUntil(26);
    // The watcher waits for its next request, not for the end of the first period. The output still has a
    // deadline, later by the second of video that it has shown.
    EXPECT_TRUE(waitsOnlyBeyond(begin + 100'000s + 500ms));
    clock.advance(begin + 100'000s + 500ms - clock.now());
    EXPECT_EQ(countStarting("ko_player::Player::cancelBuffering"), 0);
    EXPECT_EQ(video->count("timeout"), 0);
}

TEST_F(PlayerTest, TheUsersPauseOutlastsBuffering) {
    const auto pieces = makeFlv(encode(spec(50)));
    start(Buffering::On);
    player->setPause(true);
    EXPECT_TRUE(log.contains("ko_player::Player::setPause: paused: 1"));
    feedHead(pieces);
    feedPieces(pieces, 30);
    EXPECT_EQ(countStarting("ko_player::Player::finishBuffering"), 1);
    // The output stands still with the first picture, unless it has shown it.
    while (player->pausedOutputs() == 0 && video->shown().empty()) {
        std::this_thread::yield();
    }
    clock.advance(seconds(1));
    EXPECT_EQ(player->pausedOutputs(), 1);
    EXPECT_TRUE(video->shown().empty());
    player->setPause(false);
    EXPECT_TRUE(log.contains("ko_player::Player::setPause: paused: 0"));
    video->waitForShown(1);
}

TEST_F(PlayerTest, AFullChannelEndsBufferingAndLosesNothing) {
    // Pictures of 2 MB each, 10 ms apart: 8 MiB are full long before a second of video is there.
    const Clip clip = encode(spec(50));
    std::vector<std::uint8_t> filler(2'000'000, 0xFF);
    const std::uint32_t length = static_cast<std::uint32_t>(filler.size()) - 4;
    for (int i = 0; i < 4; ++i) {
        filler[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(length >> (24 - 8 * i));
    }
    filler[4] = 12; // a NAL unit of filler data
    FlvWriter writer;
    writer.header(0x01);
    writer.metadata(0, {{"videocodecid", 7}, {"width", 320}, {"height", 180}});
    writer.video(0, VideoCodec::Avc, true, FlvWriter::kSequenceHeader, clip.videoConfig);
    start(Buffering::On);
    ASSERT_TRUE(feed(writer.take()));
    constexpr std::size_t kPictures = 20;
    for (std::size_t i = 0; i < kPictures; ++i) {
        auto payload = clip.video[i].bytes;
        payload.insert(payload.end(), filler.begin(), filler.end());
        writer.video(static_cast<std::uint32_t>(i * 10), VideoCodec::Avc, clip.video[i].isKey,
                     FlvWriter::kFrames, payload);
    }
    {
        const RunningClock running(clock);
        ASSERT_TRUE(feed(writer.take()));
        video->waitForShown(kPictures);
    }
    EXPECT_EQ(countStarting("ko_player::Player::finishBuffering: buf end: p: 0, l: "), 1);
    EXPECT_EQ(countStarting("ko_player::Player::pushVideo: WARN!"), 0);
    for (std::size_t i = 0; i < kPictures; ++i) {
        EXPECT_EQ(video->shown()[i], static_cast<std::int64_t>(i * 10));
    }
}

TEST_F(PlayerTest, RejectsWhatIsNoFlv) {
    start(Buffering::Off);
    EXPECT_FALSE(feed({'G', 'I', 'F', '8', '9', 'a', 0, 0, 0, 0}));
    EXPECT_EQ(countStarting("ko_player::Player::consumeImpl: ec: "), 1);
    EXPECT_EQ(countStarting("ko_player::Player::consumeImpl: ec: Invalid argument, what: invalid header"), 1);
    EXPECT_TRUE(feed({})) << "nothing is nothing wrong";
}

TEST_F(PlayerTest, AnOverflowingTagIsAFailure) {
    start(Buffering::Off);
    FlvWriter writer;
    writer.header();
    auto bytes = writer.take();
    bytes.insert(bytes.end(), {9, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0});
    bytes.resize(bytes.size() + 7'000'000, 0);
    EXPECT_FALSE(feed(bytes));
    EXPECT_TRUE(log.contains(
        "ko_player::Player::consume: consume failed with exception: FlatBuffer.push gt maxSize"));
}

TEST_F(PlayerTest, AStoppedPipelineIsAFailure) {
    video->timeoutAnswer = [] { return false; };
    const auto pieces = makeFlv(encode(spec(50)));
    start(Buffering::Off, {5s, 3s});
    feedHead(pieces);
    feedPieces(pieces, 1);
    video->waitForShown(1);
    while (!log.contains("showTask is finished")) { // no further picture comes
        clock.advance(seconds(1));
        std::this_thread::yield();
    }
    bool accepted = true;
    for (int i = 0; i < 40 && accepted; ++i) {
        accepted = feed(pieces.at(next++).bytes);
        while (accepted && !log.contains("ko_player::QueuedDecoder::decodeTask: is finished") && i > 0) {
            std::this_thread::yield();
        }
    }
    EXPECT_FALSE(accepted);
    EXPECT_TRUE(log.contains(
        "ko_player::Player::consume: consume failed with exception: Player::VideoPipeline stopped"));
}

TEST_F(PlayerTest, StopPlaysOutWhatWasReceived) {
    const Clip clip = encode(spec(50, AudioCodec::Aac));
    const auto pieces = makeFlv(clip);
    start(Buffering::On);
    const RunningClock running(clock);
    for (const auto& piece : pieces) {
        ASSERT_TRUE(feed(piece.bytes));
    }
    player->stop();
    EXPECT_EQ(video->shown().size(), 50U);
    EXPECT_EQ(video->count("stopped"), 1);
    EXPECT_TRUE(log.contains("showTask is finished"));
    EXPECT_TRUE(log.contains("audioTask is finished"));
    EXPECT_EQ(log.count("ko_player::QueuedDecoder::decodeTask: is finished"), 2);
    EXPECT_FALSE(audio->parts().empty());
}

TEST_F(PlayerTest, StopEndsABufferingPause) {
    const auto pieces = makeFlv(encode(spec(50)));
    start(Buffering::On);
    feedHead(pieces);
    feedPieces(pieces, 5);
    const RunningClock running(clock);
    player->stop();
    EXPECT_EQ(video->shown().size(), 5U);
    EXPECT_EQ(countStarting("ko_player::Player::finishBuffering"), 0);
}

TEST_F(PlayerTest, StopWaitsForTheUsersResume) {
    const auto pieces = makeFlv(encode(spec(50)));
    start(Buffering::Off);
    player->setPause(true);
    feedHead(pieces);
    feedPieces(pieces, 5);
    const RunningClock running(clock);
    std::atomic<bool> stopped{false};
    std::thread stopper([&] {
        player->stop();
        stopped = true;
    });
    video->waitForEvent("unlock");
    for (int i = 0; i < 1000; ++i) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(stopped);
    player->setPause(false);
    stopper.join();
    EXPECT_EQ(video->shown().size(), 5U);
}

TEST_F(PlayerTest, StopBeforeAnythingCameEnds) {
    start(Buffering::On);
    player->stop();
    EXPECT_THAT(video->events(), testing::ElementsAre("stopped"));
}

TEST_F(PlayerTest, SoundThatCannotBeOpenedLeavesThePictures) {
    audio->answerParams = [](const AudioParams&, AudioParams&) { return true; };
    const auto pieces = makeFlv(encode(spec(50, AudioCodec::Aac)));
    start(Buffering::Off);
    {
        const RunningClock running(clock);
        for (const auto& piece : pieces) {
            ASSERT_TRUE(feed(piece.bytes));
        }
        video->waitForShown(50);
    }
    EXPECT_TRUE(log.contains(
        "ko_player::Player::startAudio: failed with exception: AudioPipeline: bad out parameters"));
    EXPECT_TRUE(audio->parts().empty());
}

TEST_F(PlayerTest, SoundNeverHoldsUpTheReaderWhilePlaying) {
    // A-law: a second is 8000 bytes; the device takes nothing while the clock stands still.
    FlvWriter writer;
    writer.header(0x05);
    writer.metadata(0, {{"audiocodecid", 0x70}, {"audiosamplerate", 8000}, {"audiochannels", 1}});
    start(Buffering::Off);
    ASSERT_TRUE(feed(writer.take()));
    const std::vector<std::uint8_t> sound(60'000, 0xD5);
    for (int i = 0; i < 200; ++i) {
        writer.audio(static_cast<std::uint32_t>(i * 7500), 0x70, sound);
    }
    ASSERT_TRUE(feed(writer.take()));
    EXPECT_GT(log.count("ko_player::Player::pushAudio: buf video, ignore audio"), 0);
}

TEST_F(PlayerTest, SoundInStepHasAsMuchRoomAsThePicturesItWaitsFor) {
    FlvWriter writer;
    writer.header(0x05);
    writer.metadata(0, {{"audiocodecid", 0x70}, {"audiosamplerate", 8000}, {"audiochannels", 1}});
    Options options;
    options.sync = SyncPolicy::ByTimeStamps;
    player = std::make_unique<Player>(video, audio, clock, options);
    start(Buffering::Off);
    ASSERT_TRUE(feed(writer.take()));
    const std::vector<std::uint8_t> sound(60'000, 0xD5);
    const auto push = [&](int from, int to) {
        for (int i = from; i < to; ++i) {
            writer.audio(static_cast<std::uint32_t>(i * 7500), 0x70, sound);
        }
        return feed(writer.take());
    };
    ASSERT_TRUE(push(0, 120)); // 7.2 MB
    EXPECT_EQ(log.count("ko_player::Player::pushAudio: buf video, ignore audio"), 0);
    ASSERT_TRUE(push(120, 300));
    EXPECT_GT(log.count("ko_player::Player::pushAudio: buf video, ignore audio"), 0)
        << "without pictures ahead it never holds up the reader";
}

TEST_F(PlayerTest, SoundThatWasNeverAnnouncedIsDropped) {
    FlvWriter writer;
    writer.header(0x05);
    const std::vector<std::uint8_t> sound(2'000'000, 0xD5);
    writer.audio(0, 0x70, sound); // no metadata: the codec does not match
    writer.audio(10, 0x70, sound);
    start(Buffering::Off);
    ASSERT_TRUE(feed(writer.take()));
    EXPECT_EQ(log.count("ko_player::Player::pushAudio: buf video, ignore audio"), 0);
    EXPECT_TRUE(audio->parts().empty());
}

TEST_F(PlayerTest, MetadataIsDeliveredWithItsPicture) {
    FlvOptions options;
    options.timedMetadata = {{80, {{"absolute_time", 1.4e12}}}};
    const auto pieces = makeFlv(encode(spec(50)), options);
    start(Buffering::Off);
    {
        const RunningClock running(clock);
        for (const auto& piece : pieces) {
            ASSERT_TRUE(feed(piece.bytes));
        }
        video->waitForShown(50);
    }
    const auto events = video->events();
    const auto at = std::find(events.begin(), events.end(), "value 1400000000000");
    ASSERT_NE(at, events.end());
    EXPECT_EQ(*(at - 1), "frame 80");
}

TEST_F(PlayerTest, EndsAtAnyMoment) {
    const auto pieces = makeFlv(encode(spec(50, AudioCodec::Aac)));
    for (const std::size_t count : {0U, 1U, 3U, 10U, 60U}) {
        player = std::make_unique<Player>(video, audio, clock);
        start(count % 2 == 0 ? Buffering::On : Buffering::Off);
        next = 0;
        feedPieces(pieces, count);
        const RunningClock running(clock);
        player.reset();
    }
}

} // namespace
} // namespace ko_player
