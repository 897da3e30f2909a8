#include "Session.h"

#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;
using Milliseconds = std::chrono::duration<double, std::milli>;

/// The times between the messages `from` to `to`, in milliseconds.
std::vector<double> intervals(const Session& session, std::size_t from, std::size_t to) {
    std::vector<double> result;
    for (std::size_t i = from + 1; i < std::min(to, session.shown().size()); ++i) {
        result.push_back(Milliseconds(session.shown()[i].when - session.shown()[i - 1].when).count());
    }
    return result;
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double largest(const std::vector<double>& values) {
    return *std::max_element(values.begin(), values.end());
}

class Timing : public testing::Test {
protected:
    /// A live stream of 25 pictures a second.
    void serve(int frames, std::int64_t burstMs, bool staysOpen = false) {
        ClipSpec spec;
        spec.frames = frames;
        clip_ = encode(spec);
        server_.route("/live.flv",
                      pacedHandler(makeFlv(clip_), {.burstMs = burstMs, .staysOpen = staysOpen}));
    }

    std::string url() const { return server_.url("/live.flv"); }

    Clip clip_;
    HttpServer server_;
    Session session_;
};

TEST_F(Timing, ShowsALiveStreamAtItsOwnPace) {
    serve(150, 1500);
    session_.start(url());
    ASSERT_EQ(session_.waitForExit(), 3) << session_.logText();
    ASSERT_EQ(session_.shown().size(), 150U) << session_.logText();
    EXPECT_NEAR(median(intervals(session_, 1, 150)), 40, 3 * kSlowness);
    const Milliseconds most = session_.shown()[148].when - session_.shown().front().when;
    EXPECT_NEAR(most.count(), 148 * 40, 100 * kSlowness);
}

TEST_F(Timing, BeginsWhenASecondIsBuffered) {
    serve(60, 200);
    session_.start(url());
    ASSERT_TRUE(session_.waitForFrames(3)) << session_.logText();
    EXPECT_TRUE(session_.hasLine("ko_player::Player::beginBuffering: buf start: p: 0, l: 0"))
        << session_.logText();
    EXPECT_TRUE(session_.hasLine("ko_player::Player::finishBuffering: buf end: p: 0, l: 1000"))
        << session_.logText();
    // 800 of the 1000 ms came in real time.
    const auto exchange = server_.exchanges().at(0);
    const Milliseconds wait = session_.shown().front().when - exchange.sends.front().when;
    EXPECT_NEAR(wait.count(), 800, 80 * kSlowness);
}

TEST_F(Timing, GoesOnFasterAfterAParentThatHeldTheSemaphoreForASecond) {
    serve(150, 1500);
    session_.start(url());
    ASSERT_TRUE(session_.waitForFrames(20)) << session_.logText();
    std::size_t before = 0;
    {
        const auto hold = session_.frames().hold();
        ASSERT_TRUE(hold);
        session_.listen(1000ms);
        before = session_.shown().size();
    }
    ASSERT_TRUE(session_.waitForFrames(before + 30)) << session_.logText();
    EXPECT_LE(before, 23U);
    EXPECT_GT(largest(intervals(session_, before - 2, before + 2)), 850);
    // Over half a second behind what has arrived: four fifths of the spacing.
    EXPECT_NEAR(median(intervals(session_, before + 1, before + 30)), 32, 3 * kSlowness);
    for (std::size_t i = 0; i < session_.shown().size(); ++i) {
        EXPECT_EQ(session_.shown()[i].ptsMs, static_cast<std::int64_t>(i) * 40);
    }
}

TEST_F(Timing, StandsStillWhilePausedAndThenGoesOnWithTheNextPicture) {
    serve(150, 1500);
    session_.start(url());
    ASSERT_TRUE(session_.waitForFrames(20)) << session_.logText();
    ASSERT_TRUE(session_.worker().pause());
    ASSERT_TRUE(session_.waitForLine("ko_player::Player::setPause: paused: 1")) << session_.logText();
    session_.listen(100ms * kSlowness);
    const std::size_t paused = session_.shown().size();
    session_.listen(1500ms);
    EXPECT_EQ(session_.shown().size(), paused);

    ASSERT_TRUE(session_.worker().resume());
    ASSERT_TRUE(session_.waitForFrames(paused + 30)) << session_.logText();
    EXPECT_TRUE(session_.hasLine("ko_player::Player::setPause: paused: 0"));
    EXPECT_TRUE(session_.hasLine("Resync after pause")) << session_.logText();
    EXPECT_NEAR(median(intervals(session_, paused, paused + 30)), 40, 3 * kSlowness);
    for (std::size_t i = 0; i < session_.shown().size(); ++i) {
        EXPECT_EQ(session_.shown()[i].ptsMs, static_cast<std::int64_t>(i) * 40);
    }
}

TEST_F(Timing, APauseDuringBufferingOutlastsIt) {
    serve(120, 200);
    session_.start(url());
    ASSERT_TRUE(session_.waitUntil([&] { return session_.connectedPid().has_value(); }));
    ASSERT_TRUE(session_.worker().pause());
    ASSERT_TRUE(session_.waitForLine("ko_player::Player::setPause: paused: 1")) << session_.logText();
    EXPECT_FALSE(session_.hasLineBeginning("ko_player::Player::finishBuffering"))
        << "the pause came too late for this test";
    ASSERT_TRUE(session_.waitForLine("ko_player::Player::finishBuffering: buf end: p: 0, l: 1000"))
        << session_.logText();
    session_.listen(800ms);
    EXPECT_EQ(session_.shown().size(), 0U);
    ASSERT_TRUE(session_.worker().resume());
    ASSERT_TRUE(session_.waitForFrames(20)) << session_.logText();
    EXPECT_EQ(session_.shown().front().ptsMs, 0);
    EXPECT_TRUE(session_.hasLine("Resync after pause"));
}

TEST_F(Timing, AStallEndsTheWorkerAfterTheInterFrameTimeOut) {
    serve(40, 2000, true);
    session_.start(url());
    ASSERT_EQ(session_.waitForExit(), 2) << session_.logText();
    EXPECT_EQ(session_.shown().size(), 40U);
    EXPECT_TRUE(session_.hasLine("video frame waiting timeout: 3")) << session_.logText();
    EXPECT_EQ(session_.log().back().text, "exit on frame timeout");
    const Milliseconds wait = *session_.endedAt() - session_.shown().back().when;
    EXPECT_NEAR(wait.count(), 3000, 150 * kSlowness);
}

TEST_F(Timing, AStallWhileBufferingShowsWhatThereIsAndThenEnds) {
    serve(12, 2000, true);
    session_.start(url());
    ASSERT_EQ(session_.waitForExit(), 2) << session_.logText();
    EXPECT_TRUE(session_.hasLine("ko_player::Player::cancelBuffering: buf canceled: 1"))
        << session_.logText();
    EXPECT_EQ(session_.shown().size(), 12U);
}

TEST_F(Timing, AServerThatSaysNothingEndsTheWorkerAfterTheFirstFrameTimeOut) {
    HttpServer silent;
    silent.route("/live.flv", [](HttpResponse& response) {
        response.sendHeader();
        response.waitForClientToLeave();
    });
    const auto begin = Clock::now();
    session_.start(silent.url("/live.flv"));
    ASSERT_EQ(session_.waitForExit(), 2) << session_.logText();
    EXPECT_TRUE(session_.hasLine("video frame waiting timeout: 5")) << session_.logText();
    EXPECT_NEAR(Milliseconds(*session_.endedAt() - begin).count(), 5100, 400 * kSlowness);
    EXPECT_TRUE(session_.connectedPid()) << "the link was healthy";
}

} // namespace
} // namespace mediaworker::test
