#include "parent/PlaybackMonitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <vector>

using namespace mediaworker::parent;
using namespace std::chrono_literals;
using ::testing::Eq;
using ::testing::Optional;

namespace {

using Milliseconds = PlaybackMonitor::Milliseconds;

class PlaybackMonitorTest : public ::testing::Test {
protected:
    void SetUp() override { monitor_.started(now_); }

    void advance(std::chrono::nanoseconds duration) { now_ += duration; }
    void frame(qint64 ptsMs) { monitor_.frame(now_, ptsMs); }
    /// Pictures that come exactly when they are due; the newest one comes last.
    void play(int frames, Milliseconds spacing = 40ms) {
        for (int i = 0; i < frames; ++i) {
            advance(spacing);
            frame(monitor_.positionMs().value_or(-spacing.count()) + spacing.count());
        }
    }
    void setPaused(bool paused) { monitor_.setPaused(now_, paused); }
    [[nodiscard]] PlaybackState state() const { return monitor_.state(now_); }
    [[nodiscard]] qint64 delayMs() const { return monitor_.delayMs(now_); }
    [[nodiscard]] qint64 behindMs() const { return monitor_.behindMs(now_); }
    [[nodiscard]] double fps() const { return monitor_.framesPerSecond(now_); }

    PlaybackMonitor::TimePoint now_{100h};
    PlaybackMonitor monitor_;
};

} // namespace

TEST_F(PlaybackMonitorTest, KnowsNothingBeforeTheStart) {
    const PlaybackMonitor monitor;
    EXPECT_EQ(monitor.state(now_), PlaybackState::Idle);
    EXPECT_EQ(monitor.frames(), 0U);
    EXPECT_EQ(monitor.framesPerSecond(now_), 0);
    EXPECT_EQ(monitor.positionMs(), std::nullopt);
    EXPECT_EQ(monitor.absoluteTimeMs(), std::nullopt);
    EXPECT_EQ(monitor.lastFragment(), std::nullopt);
    EXPECT_EQ(monitor.timeToFirstPicture(), std::nullopt);
    EXPECT_EQ(monitor.delayMs(now_), 0);
}

TEST_F(PlaybackMonitorTest, GoesThroughTheStatesOfAStream) {
    EXPECT_EQ(state(), PlaybackState::Connecting);
    advance(10s);
    EXPECT_EQ(state(), PlaybackState::Connecting);
    monitor_.connected();
    EXPECT_EQ(state(), PlaybackState::Buffering);
    advance(1s);
    frame(5000);
    EXPECT_EQ(state(), PlaybackState::Playing);
    monitor_.ended();
    EXPECT_EQ(state(), PlaybackState::Ended);
}

TEST_F(PlaybackMonitorTest, APictureMeansThatTheWorkerIsConnected) {
    frame(0);
    EXPECT_EQ(state(), PlaybackState::Playing);
}

TEST_F(PlaybackMonitorTest, SilenceMeansBuffering) {
    struct Row {
        Milliseconds silence;
        PlaybackState state;
    };
    for (const Row& row : {
             Row{0ms, PlaybackState::Playing},
             Row{40ms, PlaybackState::Playing},
             Row{1200ms, PlaybackState::Playing}, // one picture in 1.2 s is slow, and not late
             Row{PlaybackMonitor::kSilence, PlaybackState::Playing},
             Row{PlaybackMonitor::kSilence + 1ms, PlaybackState::Buffering},
             Row{10s, PlaybackState::Buffering},
         }) {
        PlaybackMonitor monitor;
        monitor.started(now_);
        monitor.connected();
        monitor.frame(now_, 0);
        EXPECT_EQ(monitor.state(now_ + row.silence), row.state) << row.silence.count();
    }
}

TEST_F(PlaybackMonitorTest, APictureEndsTheBuffering) {
    play(3);
    advance(2s);
    ASSERT_EQ(state(), PlaybackState::Buffering);
    frame(120);
    EXPECT_EQ(state(), PlaybackState::Playing);
}

TEST_F(PlaybackMonitorTest, AUserPauseIsNoBuffering) {
    monitor_.connected();
    play(3);
    setPaused(true);
    EXPECT_TRUE(monitor_.isPaused());
    advance(1h);
    EXPECT_EQ(state(), PlaybackState::Paused);
    setPaused(false);
    EXPECT_FALSE(monitor_.isPaused());
    EXPECT_EQ(state(), PlaybackState::Playing) << "the silence begins with the resume";
    advance(PlaybackMonitor::kSilence + 1ms);
    EXPECT_EQ(state(), PlaybackState::Buffering);
}

TEST_F(PlaybackMonitorTest, APauseBeforeTheConnectionShowsLater) {
    setPaused(true);
    EXPECT_EQ(state(), PlaybackState::Connecting);
    monitor_.connected();
    EXPECT_EQ(state(), PlaybackState::Paused);
    setPaused(false);
    EXPECT_EQ(state(), PlaybackState::Buffering);
}

TEST_F(PlaybackMonitorTest, TheEndEndsAPauseAsWell) {
    play(2);
    setPaused(true);
    monitor_.ended();
    EXPECT_EQ(state(), PlaybackState::Ended);
    EXPECT_FALSE(monitor_.isPaused());
    setPaused(true);
    EXPECT_FALSE(monitor_.isPaused());
}

TEST_F(PlaybackMonitorTest, WhatComesBehindTheEndIsIgnored) {
    play(2);
    monitor_.ended();
    frame(80);
    monitor_.connected();
    EXPECT_EQ(monitor_.frames(), 2U);
    EXPECT_EQ(state(), PlaybackState::Ended);
}

TEST_F(PlaybackMonitorTest, AStartForgetsTheWorkerBefore) {
    play(30);
    setPaused(true);
    monitor_.absoluteTime(7);
    monitor_.fragment(1, 2);
    monitor_.ended();
    monitor_.started(now_);
    EXPECT_EQ(state(), PlaybackState::Connecting);
    EXPECT_FALSE(monitor_.isPaused());
    EXPECT_EQ(monitor_.frames(), 0U);
    EXPECT_EQ(fps(), 0);
    EXPECT_EQ(monitor_.positionMs(), std::nullopt);
    EXPECT_EQ(monitor_.absoluteTimeMs(), std::nullopt);
    EXPECT_EQ(monitor_.lastFragment(), std::nullopt);
    EXPECT_EQ(monitor_.timeToFirstPicture(), std::nullopt);
}

TEST_F(PlaybackMonitorTest, TellsTheTimeToTheFirstPicture) {
    advance(1250ms);
    frame(0);
    advance(40ms);
    frame(40);
    EXPECT_THAT(monitor_.timeToFirstPicture(), Optional(1250ms));
}

TEST_F(PlaybackMonitorTest, CountsThePicturesOfTheLastSecond) {
    play(10);
    EXPECT_EQ(fps(), 10);
    play(90);
    EXPECT_EQ(fps(), 25);
    EXPECT_EQ(monitor_.frames(), 100U);
    advance(500ms);
    EXPECT_EQ(fps(), 13) << "500, 540 … 980 ms ago";
    advance(499ms);
    EXPECT_EQ(fps(), 1);
    advance(1ms);
    EXPECT_EQ(fps(), 0) << "a whole second ago is too long";
}

TEST_F(PlaybackMonitorTest, CountsNoMoreThanItRemembers) {
    for (int i = 0; i < 100000; ++i) {
        frame(i);
    }
    EXPECT_EQ(fps(), static_cast<double>(PlaybackMonitor::kMaxFramesPerSecond));
    EXPECT_EQ(monitor_.frames(), 100000U);
}

TEST_F(PlaybackMonitorTest, TellsTheNewestTimeStamp) {
    frame(5000);
    EXPECT_THAT(monitor_.positionMs(), Optional(Eq(5000)));
    frame(5040);
    EXPECT_THAT(monitor_.positionMs(), Optional(Eq(5040)));
}

TEST_F(PlaybackMonitorTest, CarriesTheAbsoluteTimeForward) {
    constexpr qint64 kTold = 1400000000000;
    frame(5000);
    EXPECT_EQ(monitor_.absoluteTimeMs(), std::nullopt);
    monitor_.absoluteTime(kTold);
    EXPECT_THAT(monitor_.absoluteTimeMs(), Optional(Eq(kTold)));
    frame(5040);
    EXPECT_THAT(monitor_.absoluteTimeMs(), Optional(Eq(kTold + 40)));
    monitor_.absoluteTime(kTold + 1000);
    EXPECT_THAT(monitor_.absoluteTimeMs(), Optional(Eq(kTold + 1000)));
}

TEST_F(PlaybackMonitorTest, AnAbsoluteTimeBeforeTheFirstPictureIsThatPictures) {
    monitor_.absoluteTime(9000);
    EXPECT_THAT(monitor_.absoluteTimeMs(), Optional(Eq(9000)));
    frame(5000);
    EXPECT_THAT(monitor_.absoluteTimeMs(), Optional(Eq(9000)));
    frame(5100);
    EXPECT_THAT(monitor_.absoluteTimeMs(), Optional(Eq(9100)));
}

TEST_F(PlaybackMonitorTest, KeepsTheNewestFragment) {
    monitor_.fragment(1, 60);
    monitor_.fragment(2, 60);
    EXPECT_THAT(monitor_.lastFragment(), Optional(Fragment{2, 60}));
}

TEST_F(PlaybackMonitorTest, TheDelayIsTimeThatPassedLessTimeStamps) {
    struct Row {
        const char* what;
        std::vector<std::pair<Milliseconds, qint64>> pictures; ///< time since the one before, time stamp
        Milliseconds sinceTheLast;
        qint64 delayMs;
    };
    for (const Row& row : {
             Row{"no picture", {}, 5s, 0},
             Row{"one picture", {{0ms, 5000}}, 5s, 0},
             Row{"on time", {{0ms, 5000}, {40ms, 5040}, {40ms, 5080}}, 0ms, 0},
             Row{"one late", {{0ms, 0}, {40ms, 40}, {70ms, 80}}, 0ms, 30},
             Row{"and in time again", {{0ms, 0}, {70ms, 40}, {10ms, 80}}, 0ms, 0},
             Row{"too early", {{0ms, 0}, {20ms, 40}}, 0ms, -20},
             Row{"the next one is not due yet", {{0ms, 0}, {40ms, 40}}, 40ms, 0},
             Row{"the next one is late", {{0ms, 0}, {40ms, 40}}, 100ms, 60},
             Row{"late, and the next one late", {{0ms, 0}, {50ms, 40}}, 100ms, 70},
             Row{"the largest spacing", {{0ms, 0}, {1300ms, 1200}}, 0ms, 100},
             Row{"a jump forwards", {{0ms, 0}, {140ms, 40}, {40ms, 1241}}, 0ms, 0},
             Row{"and on from there", {{0ms, 0}, {140ms, 40}, {40ms, 9000}, {45ms, 9040}}, 0ms, 5},
             Row{"a jump keeps the spacing", {{0ms, 0}, {40ms, 40}, {40ms, 9000}}, 50ms, 10},
             Row{"a jump back", {{0ms, 9000}, {140ms, 9040}, {40ms, 0}, {41ms, 40}}, 0ms, 1},
             Row{"a step back", {{0ms, 1000}, {40ms, 1040}, {40ms, 1000}}, 0ms, 80},
         }) {
        PlaybackMonitor monitor;
        auto now = now_;
        monitor.started(now);
        for (const auto& [wait, ptsMs] : row.pictures) {
            now += wait;
            monitor.frame(now, ptsMs);
        }
        EXPECT_EQ(monitor.delayMs(now + row.sinceTheLast), row.delayMs) << row.what;
    }
}

TEST_F(PlaybackMonitorTest, PausesAreNoDelay) {
    play(10);
    advance(20ms);
    setPaused(true);
    advance(10s);
    EXPECT_EQ(delayMs(), 0);
    setPaused(false);
    advance(20ms);
    EXPECT_EQ(delayMs(), 0);
    advance(7ms);
    EXPECT_EQ(delayMs(), 7) << "it is late now";
    frame(400);
    EXPECT_EQ(delayMs(), 7);
    play(5);
    setPaused(true);
    advance(1min);
    setPaused(false);
    play(5);
    EXPECT_EQ(delayMs(), 7) << "the second pause does not count either";
}

TEST_F(PlaybackMonitorTest, PicturesThatComeDuringAPauseAreNotAhead) {
    play(10);
    setPaused(true);
    play(3); // the worker has not taken the command yet
    EXPECT_EQ(delayMs(), 0);
    advance(5s);
    EXPECT_EQ(delayMs(), 0);
    setPaused(false);
    play(1);
    EXPECT_EQ(delayMs(), 0);
}

TEST_F(PlaybackMonitorTest, APauseBeforeTheFirstPictureDoesNotCountForIt) {
    setPaused(true);
    advance(5s);
    setPaused(false);
    play(2);
    EXPECT_EQ(delayMs(), 0);
}

TEST_F(PlaybackMonitorTest, OrdersThatChangeNothingAreIgnored) {
    play(2);
    setPaused(false);
    setPaused(true);
    advance(3s);
    setPaused(true);
    advance(3s);
    setPaused(false);
    play(1);
    EXPECT_EQ(delayMs(), 0);
}

TEST_F(PlaybackMonitorTest, TheDelayStandsStillBehindTheEnd) {
    play(5);
    advance(13ms);
    frame(200);
    monitor_.ended();
    const qint64 atTheEnd = delayMs();
    advance(1h);
    EXPECT_EQ(delayMs(), atTheEnd);
    EXPECT_EQ(atTheEnd, -27);
}

TEST_F(PlaybackMonitorTest, SurvivesTimeStampsOfAnySize) {
    constexpr qint64 kMin = std::numeric_limits<qint64>::min();
    constexpr qint64 kMax = std::numeric_limits<qint64>::max();
    for (const qint64 first : {kMin, qint64{-1}, qint64{0}, kMax}) {
        for (const qint64 second : {kMin, qint64{-1}, qint64{0}, kMax}) {
            monitor_.started(now_);
            frame(first);
            monitor_.absoluteTime(kMax);
            advance(40ms);
            frame(second);
            EXPECT_LE(std::abs(delayMs()), 41);
            EXPECT_LE(monitor_.absoluteTimeMs(), kMax);
            monitor_.absoluteTime(kMin);
            frame(first);
            EXPECT_GE(monitor_.absoluteTimeMs(), kMin);
        }
    }
}

TEST_F(PlaybackMonitorTest, IsBehindByItsPausesAndItsDelay) {
    monitor_.connected();
    EXPECT_EQ(behindMs(), 0);
    play(10);
    EXPECT_EQ(behindMs(), 0);
    setPaused(true);
    advance(8s);
    EXPECT_EQ(behindMs(), 8000);
    EXPECT_EQ(delayMs(), 0);
    setPaused(false);
    play(10);
    EXPECT_EQ(behindMs(), 8000);
    setPaused(true);
    advance(1s);
    setPaused(false);
    play(5);
    advance(540ms);
    EXPECT_EQ(behindMs(), 9500);
    frame(1'000'000); // another piece of the stream: shown at once
    EXPECT_EQ(behindMs(), 0);
    monitor_.started(now_);
    EXPECT_EQ(behindMs(), 0);
}
