#include "Session.h"

#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

TEST(Memory, StaysBoundedWhenAPausedArchiveIsSentAsFastAsItCan) {
    ClipSpec spec;
    spec.widthPx = 1920;
    spec.heightPx = 1080;
    spec.frames = 50;
    spec.bitrateKbps = 8000;
    spec.noise = 24;
    const Clip clip = encode(spec);
    HttpServer server;
    server.route("/archive/1", pacedHandler(makeFlv(clip, lasting(clip, 120s)), {.speed = 0}));
    Session session({.readsPictures = false});
    session.start(server.url("/archive/1"));
    ASSERT_TRUE(session.waitForFrames(10)) << session.logText();
    ASSERT_TRUE(session.worker().pause());
    std::int64_t most = 0;
    for (int i = 0; i < 40; ++i) {
        session.listen(100ms);
        most = std::max(most, session.residentBytes());
    }
    const std::size_t sent = server.exchanges().at(0).sends.back().bodyBytes;
    EXPECT_LT(sent, std::size_t{40} << 20U) << "the worker did not hold the server back";
    EXPECT_GT(sent, std::size_t{8} << 20U) << "the clip is too small for this test";
    if (kMeasuresMemory) {
        EXPECT_LT(most, 120'000'000);
    }
    // And it still plays.
    const std::size_t frames = session.shown().size();
    ASSERT_TRUE(session.worker().resume());
    EXPECT_TRUE(session.waitForFrames(frames + 25)) << session.logText();
    RecordProperty("resident_bytes", std::to_string(most));
}

} // namespace
} // namespace mediaworker::test
