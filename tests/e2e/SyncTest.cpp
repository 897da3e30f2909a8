#include "SyncRun.h"

#include "support/media/Clip.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"
#include "support/servers/Sweep.h"

#include <gtest/gtest.h>

#include <chrono>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

constexpr double kAacDelayMs = 1024 * 1000.0 / 44100; ///< the encoder's first frame holds nothing yet
constexpr auto kSettling = 1s;
constexpr auto kMeasured = 3s;

/// The sound of the real worker against its pictures, where it is heard. What is asserted is wider than what
/// is reached (see docs/performance.md): other work on the machine delays messages and sound servers.
class InStep : public testing::Test {
protected:
    static Clip clip() {
        ClipSpec spec;
        spec.frames = 25 * 24;
        spec.zeroLatency = true;
        spec.audio = AudioCodec::Aac;
        spec.wave = sweepWave();
        return encode(spec);
    }
    void play(const std::string& path, const PaceOptions& pace,
              std::vector<TimedBytes> pieces = makeFlv(clip())) {
        server_.route(path.substr(0, path.find('?')), pacedHandler(std::move(pieces), pace));
        run_.start(server_.url("/") + path.substr(1));
    }
    void turnOn() { ASSERT_TRUE(run_.session().worker().setVolume(100)); }
    /// From one second after now on.
    void expectInStep() {
        const auto event = Clock::now();
        run_.session().listen(kSettling + kMeasured);
        run_.finish(kAacDelayMs);
        const auto measured = run_.measure(event + kSettling, event + kSettling + kMeasured);
        EXPECT_GT(measured.readings, 75U) << "half of the time is heard\n" << run_.session().logText();
        EXPECT_GT(measured.median, kEarliestMs - 55);
        EXPECT_LT(measured.median, kLatestMs + 75);
    }

    HttpServer server_;
    SyncRun run_{"sync=on"};
};

constexpr PaceOptions kLive{.burstMs = 1500, .staysOpen = true};

TEST_F(InStep, FromTheStart) {
    play("/live.flv", kLive);
    turnOn();
    expectInStep();
}

TEST_F(InStep, WhenTurnedOnLater) {
    play("/live.flv", kLive);
    run_.session().listen(3s);
    turnOn();
    expectInStep();
}

TEST_F(InStep, AfterAPause) {
    play("/live.flv", kLive);
    turnOn();
    run_.session().listen(1500ms);
    run_.pauseFor(1500ms);
    expectInStep();
}

TEST_F(InStep, WithoutBuffering) {
    play("/archive.flv?speed=2", {.staysOpen = true});
    turnOn();
    expectInStep();
}

TEST_F(InStep, AfterTheServerHeldBackAndBurst) {
    auto pieces = makeFlv(clip());
    for (TimedBytes& piece : pieces) { // from 2 s to 5 s nothing comes
        piece.ms = piece.ms >= 3500 && piece.ms < 6500 ? 6500 : piece.ms;
    }
    play("/live.flv", kLive, std::move(pieces));
    turnOn();
    run_.session().listen(5s);
    expectInStep();
}

} // namespace
} // namespace mediaworker::test
