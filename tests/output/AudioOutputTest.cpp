#include "output/AudioOutput.h"
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
using mediaworker::test::FakeAudioHandler;
using mediaworker::test::LogCapture;
using mediaworker::test::makeSound;
using mediaworker::test::ManualClock;
using std::chrono::milliseconds;

/// 8000 Hz mono 16 bit: 16 bytes a millisecond, a large part is 6400 bytes, a small one 3200.
class AudioOutputTest : public testing::Test {
protected:
    ~AudioOutputTest() override {
        pause->stop();
        frames->close();
        while (output && !log.contains("audioTask is finished")) {
            clock.advance(milliseconds(400));
        }
    }

    void start() {
        AudioParams out;
        out.format = AV_SAMPLE_FMT_S16;
        out.sampleRate = 8000;
        out.channels = 1;
        out.channelLayout = AV_CH_LAYOUT_MONO;
        output = std::make_unique<AudioOutput>(frames, out, handler, state, clock);
    }
    void pushMs(int ms) {
        ASSERT_TRUE(frames->push(makeSound(nextPts_, ms * 8)));
        nextPts_ += ms;
    }
    void skipMs(int ms) { nextPts_ += ms; }
    /// Waits until the output pauses for that long between parts, and lets it pass.
    void passPause(milliseconds expected) {
        clock.waitForDeadline(clock.now() + expected);
        clock.advance(expected);
    }
    void waitUntilPaused() const {
        while (pause->waiting() == 0) {
            std::this_thread::yield();
        }
    }
    [[nodiscard]] std::vector<std::size_t> partSizes() const {
        std::vector<std::size_t> sizes;
        for (const auto& part : handler->parts()) {
            sizes.push_back(part.size());
        }
        return sizes;
    }

    LogCapture log;
    ManualClock clock;
    std::shared_ptr<FrameQueue> frames = std::make_shared<FrameQueue>(1000);
    std::shared_ptr<details::PauseCtrl> pause = std::make_shared<details::PauseCtrl>();
    std::shared_ptr<PlayerState> state = std::make_shared<PlayerState>(pause);
    std::shared_ptr<FakeAudioHandler> handler = std::make_shared<FakeAudioHandler>();
    std::unique_ptr<AudioOutput> output;

private:
    std::int64_t nextPts_ = 1000;
};

TEST_F(AudioOutputTest, WritesALargePartThenSmallOnesOnARhythm) {
    for (int i = 0; i < 10; ++i) {
        pushMs(100);
    }
    start();
    handler->waitForParts(1);
    passPause(milliseconds(380));
    EXPECT_TRUE(log.contains("ko_player::AudioOutput::writeBuffered: AudioBuf big fragment is written: 1"));
    handler->waitForParts(2);
    passPause(milliseconds(180));
    handler->waitForParts(3);
    passPause(milliseconds(180));
    handler->waitForParts(4);
    EXPECT_THAT(partSizes(), testing::ElementsAre(6400, 3200, 3200, 3200));
}

TEST_F(AudioOutputTest, KeepsEveryByteInOrder) {
    ASSERT_TRUE(frames->push(makeSound(0, 3000)));
    ASSERT_TRUE(frames->push(makeSound(0, 3300, 8000, 1, AV_SAMPLE_FMT_S16, 0x70)));
    frames->abort();
    start();
    while (!log.contains("audioTask is finished")) {
        clock.advance(milliseconds(400));
    }
    std::vector<std::uint8_t> all;
    for (const auto& part : handler->parts()) {
        all.insert(all.end(), part.begin(), part.end());
    }
    ASSERT_EQ(all.size(), 12600U);
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto expected = i < 6000 ? i : i - 6000 + 0x70;
        ASSERT_EQ(all[i], static_cast<std::uint8_t>(expected)) << "byte " << i;
    }
}

TEST_F(AudioOutputTest, WritesNothingWhileTheQueueIsOpenButShort) {
    start();
    pushMs(400);
    handler->waitForParts(1);
    passPause(milliseconds(380));
    // 150 ms come, 200 are wanted: it takes all of them, and waits for more. Were a piece written by itself,
    // the next one would not be taken.
    for (int piece = 0; piece < 15; ++piece) {
        pushMs(10);
        while (frames->size() > 0 && handler->parts().size() == 1) {
            std::this_thread::yield();
        }
        ASSERT_EQ(handler->parts().size(), 1U);
    }
    frames->abort();
    handler->waitForParts(2);
    EXPECT_THAT(partSizes(), testing::ElementsAre(6400, 2400));
}

TEST_F(AudioOutputTest, DrainsOneAndAHalfPartsAfterTheEnd) {
    start();
    pushMs(700); // a large part, then 300 ms stay: one and a half small parts
    handler->waitForParts(1);
    clock.waitForWaiters(1);
    frames->abort();
    clock.advance(milliseconds(380));
    handler->waitForParts(2);
    EXPECT_THAT(partSizes(), testing::ElementsAre(6400, 3200));
    EXPECT_FALSE(log.contains("audioTask is finished"));
    passPause(milliseconds(180));
    handler->waitForParts(3);
    output->join();
    EXPECT_THAT(partSizes(), testing::ElementsAre(6400, 3200, 1600));
    EXPECT_TRUE(log.contains("audioTask is finished"));
}

TEST_F(AudioOutputTest, PrimesAgainAfterAUsersPause) {
    for (int i = 0; i < 20; ++i) {
        pushMs(100);
    }
    start();
    handler->waitForParts(1);
    clock.waitForWaiters(1);
    pause->set(PauseReason::User);
    clock.advance(milliseconds(380));
    waitUntilPaused();
    pause->clear(PauseReason::User);
    // The small part that was due is written first; the next cycle is a large one.
    handler->waitForParts(2);
    passPause(milliseconds(180));
    handler->waitForParts(3);
    EXPECT_THAT(partSizes(), testing::ElementsAre(6400, 3200, 6400));
    passPause(milliseconds(380));
    EXPECT_TRUE(log.contains("ko_player::AudioOutput::writeBuffered: AudioBuf big fragment is written: 3"));
}

TEST_F(AudioOutputTest, ABufferingPauseDoesNotPrime) {
    for (int i = 0; i < 20; ++i) {
        pushMs(100);
    }
    pause->set(PauseReason::Buffering);
    start();
    waitUntilPaused();
    EXPECT_TRUE(handler->parts().empty());
    pause->clear(PauseReason::Buffering);
    handler->waitForParts(1);
    passPause(milliseconds(380));
    handler->waitForParts(2);
    passPause(milliseconds(180));
    handler->waitForParts(3);
    EXPECT_THAT(partSizes(), testing::ElementsAre(6400, 3200, 3200));
}

TEST_F(AudioOutputTest, CountsParts) {
    start();
    pushMs(400);
    handler->waitForParts(1);
    for (std::size_t i = 2; i <= 100; ++i) {
        pushMs(200);
        passPause(milliseconds(i == 2 ? 380 : 180));
        handler->waitForParts(i);
    }
    clock.waitForWaiters(1);
    EXPECT_TRUE(log.contains("ko_player::AudioOutput::writeBuffered: AudioBuf 100 parts were written"));
}

TEST_F(AudioOutputTest, DropsFramesThatCannotBeConverted) {
    auto broken = makeSound(0, 800);
    (*broken)->format = 9999;
    ASSERT_TRUE(frames->push(broken));
    pushMs(400);
    start();
    handler->waitForParts(1);
    EXPECT_THAT(partSizes(), testing::ElementsAre(6400));
    int dropped = 0;
    for (const auto& line : log.lines()) {
        dropped += line.starts_with("ko_player::AudioOutput::handleFrame: conversion failed: ") ? 1 : 0;
    }
    EXPECT_EQ(dropped, 1);
    (*broken)->format = AV_SAMPLE_FMT_S16;
}

TEST_F(AudioOutputTest, RecordsTimeStamps) {
    start();
    pushMs(100);
    ASSERT_TRUE(frames->push(makeSound(5000, 2401))); // 300.125 ms
    handler->waitForParts(1);
    EXPECT_EQ(output->firstTimestampMs(), 1000);
    EXPECT_EQ(output->lastTimestampMs(), 5000);
    EXPECT_EQ(output->endTimestampMs(), 5301);
}

TEST_F(AudioOutputTest, FramesStillQueuedWhenClosedAreNotPlayed) {
    for (int i = 0; i < 8; ++i) {
        pushMs(100);
    }
    frames->close();
    start();
    while (!log.contains("audioTask is finished")) {
        clock.advance(milliseconds(400));
    }
    EXPECT_TRUE(handler->parts().empty());
}

TEST_F(AudioOutputTest, RefusesParametersWithoutASize) {
    EXPECT_THROW(AudioOutput(frames, AudioParams{}, handler, state, clock), std::logic_error);
}

/// The same in step with pictures. A device takes 400 ms, which is 6400 bytes.
class AudioOutputInStep : public AudioOutputTest {
protected:
    AudioOutputInStep() { state = std::make_shared<PlayerState>(pause, record); }

    void setDevice(bool isPlaying, double heldMs) {
        handler->setLevel(SoundLevel{.device = 1,
                                     .isPlaying = isPlaying,
                                     .heldMs = heldMs,
                                     .roomMs = 400 - heldMs,
                                     .capacityMs = 400});
    }
    /// Lets time pass until that many parts were written.
    void passUntilParts(std::size_t count) {
        while (handler->parts().size() < count) {
            clock.advance(milliseconds(1));
            std::this_thread::yield();
        }
    }

    std::shared_ptr<ShownRecord> record = std::make_shared<ShownRecord>();
};

TEST_F(AudioOutputInStep, FillsTheDeviceWithWhatIsDueAndThenAsItPlays) {
    for (int i = 0; i < 20; ++i) {
        pushMs(100); // from 1000 on
    }
    record->publish({1000, clock.now()});
    setDevice(false, 0);
    start();
    handler->waitForParts(1);
    setDevice(true, 300);
    passUntilParts(2);
    EXPECT_THAT(partSizes(), testing::ElementsAre(6400, 1600));
    EXPECT_EQ(handler->parts()[0][0], 0);
}

TEST_F(AudioOutputInStep, SkipsWhatIsLate) {
    for (int i = 0; i < 20; ++i) {
        pushMs(100);
    }
    record->publish({1300, clock.now()});
    setDevice(false, 0);
    start();
    handler->waitForParts(1);
    EXPECT_THAT(partSizes(), testing::ElementsAre(6400));
    EXPECT_LE(frames->size(), 13U) << "seven of the twenty are taken: 300 ms skipped, 400 ms written";
}

TEST_F(AudioOutputInStep, PutsSilenceBeforeWhatIsEarly) {
    for (int i = 0; i < 20; ++i) {
        pushMs(100);
    }
    record->publish({900, clock.now()});
    setDevice(false, 0);
    start();
    handler->waitForParts(2);
    EXPECT_THAT(partSizes(), testing::ElementsAre(1600, 4800));
    EXPECT_EQ(handler->parts()[0], std::vector<std::uint8_t>(1600, 0));
}

TEST_F(AudioOutputInStep, DoesNotSitOutAGapThatThePicturesLeapOver) {
    constexpr int kGapAtMs = 2000;
    constexpr int kGapMs = 5000;
    pushMs(kGapAtMs);
    skipMs(kGapMs);
    for (int i = 0; i < 40; ++i) {
        pushMs(100);
    }
    setDevice(false, 0);
    const auto stampAt = [&](int ms) { return 1000 + ms + (ms < kGapAtMs ? 0 : kGapMs); };
    record->publish({stampAt(0), clock.now()});
    start();
    handler->waitForParts(1);
    for (int ms = 0; ms < 5000; ms += 5) {
        clock.waitForWaiters(1);
        setDevice(true, std::max(0.0, handler->soundLevel()->heldMs - 5));
        if (ms % 40 == 0) {
            record->publish({stampAt(ms), clock.now()});
        }
        clock.advance(milliseconds(5));
    }
    clock.waitForWaiters(1);
    std::size_t silentMs = 0;
    for (const auto& part : handler->parts()) {
        silentMs += part == std::vector<std::uint8_t>(part.size(), 0) ? part.size() / 16 : 0;
    }
    EXPECT_LE(silentMs, 500U);
    const double writtenUntil = static_cast<double>(stampAt(5000)) + handler->soundLevel()->heldMs;
    EXPECT_NEAR(static_cast<double>(output->lastTimestampMs()), writtenUntil, 250);
}

TEST_F(AudioOutputInStep, WithoutADeviceSoundGoesByWithThePictures) {
    for (int i = 0; i < 20; ++i) {
        pushMs(100);
    }
    record->publish({1500, clock.now()});
    start();
    while (frames->size() > 14) {
        clock.advance(milliseconds(1));
        std::this_thread::yield();
    }
    EXPECT_TRUE(handler->parts().empty());
}

TEST_F(AudioOutputInStep, APauseStopsTheDeviceAtOnceAndAResumeGoesOn) {
    setDevice(true, 300);
    start(); // no sound comes
    pause->set(PauseReason::Buffering);
    while (pause->waiting() == 0) {
        clock.advance(milliseconds(1));
        std::this_thread::yield();
    }
    handler->waitForPauses("pause ");
    pause->clear(PauseReason::Buffering);
    handler->waitForPauses("pause resume ");
}

TEST_F(AudioOutputInStep, EndsWithTheQueueOnceWhatItHeldWentBy) {
    pushMs(150);
    frames->abort();
    start();
    while (!log.contains("audioTask is finished")) {
        clock.advance(milliseconds(1));
        std::this_thread::yield();
    }
    EXPECT_EQ(output->lastTimestampMs(), 1000);
    EXPECT_EQ(frames->size(), 0U);
}

} // namespace
} // namespace ko_player
