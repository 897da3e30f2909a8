#include "Session.h"

#include "support/ChildProcess.h"
#include "support/Platform.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <gtest/gtest.h>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

constexpr char kPause = 6;
constexpr char kResume = 7;

std::string commandLine(char type) {
    return std::string("Command from parent process: ") + type;
}

QByteArray packet(char type, const QByteArray& data = {}) {
    QByteArray bytes;
    bytes.append(type);
    bytes.append(static_cast<char>(data.size() & 0xFF));
    bytes.append(static_cast<char>(data.size() >> 8));
    return bytes + data;
}

/// A live stream of ten seconds.
class Link : public testing::Test {
protected:
    Link() {
        ClipSpec spec;
        spec.frames = 250;
        clip_ = encode(spec);
        server_.route("/live.flv", pacedHandler(makeFlv(clip_), {.burstMs = 1500}));
    }

    void startAndWaitForFrames() {
        session_.start(server_.url("/live.flv"));
        ASSERT_TRUE(session_.waitForFrames(5)) << session_.logText();
    }

    void send(const QByteArray& bytes) { ASSERT_TRUE(session_.worker().writeRaw(bytes)); }

    Clip clip_;
    HttpServer server_;
    Session session_;
};

TEST_F(Link, BeginsWithTheProcessId) {
    session_.start(server_.url("/live.flv"));
    ASSERT_TRUE(session_.waitUntil([&] { return session_.connectedPid().has_value(); }));
    EXPECT_EQ(session_.connectedPid(), session_.worker().processId());
    EXPECT_EQ(session_.shown().size(), 0U);
}

TEST_F(Link, EndsTheWorkerAtOnceWhenTheParentLeaves) {
    startAndWaitForFrames();
    const auto begin = Clock::now();
    session_.worker().disconnectLink();
    ASSERT_EQ(session_.waitForExit(), 0) << session_.logText();
    EXPECT_LT(*session_.endedAt() - begin, 500ms * kSlowness);
}

TEST_F(Link, EndsTheWorkerAtOnceWhenTheParentLeavesDuringAPause) {
    startAndWaitForFrames();
    ASSERT_TRUE(session_.worker().pause());
    ASSERT_TRUE(session_.waitForLine("ko_player::Player::setPause: paused: 1"));
    session_.worker().disconnectLink();
    const auto begin = Clock::now();
    ASSERT_EQ(session_.waitForExit(), 0) << session_.logText();
    EXPECT_LT(*session_.endedAt() - begin, 500ms * kSlowness);
}

TEST_F(Link, TakesOneCommandForEachArrivalOfBytes) {
    startAndWaitForFrames();
    send(packet(kPause) + packet(kResume));
    ASSERT_TRUE(session_.waitForLine(commandLine(kPause))) << session_.logText();
    session_.listen(300ms);
    EXPECT_FALSE(session_.hasLine(commandLine(kResume)));
    send(packet(kPause).left(1));
    EXPECT_TRUE(session_.waitForLine(commandLine(kResume))) << session_.logText();
    EXPECT_TRUE(session_.waitForLine("ko_player::Player::setPause: paused: 0"));
}

TEST_F(Link, TakesAHeaderByteByByte) {
    startAndWaitForFrames();
    for (const char byte : packet(kPause)) {
        EXPECT_FALSE(session_.hasLine(commandLine(kPause)));
        send(QByteArray(1, byte));
        session_.listen(50ms);
    }
    EXPECT_TRUE(session_.waitForLine(commandLine(kPause))) << session_.logText();
}

TEST_F(Link, IgnoresAVolumeOfTheWrongLengthWithoutAWord) {
    startAndWaitForFrames();
    send(packet(5, QByteArray(2, 'x')));
    ASSERT_TRUE(session_.waitForLine(commandLine(5))) << session_.logText();
    session_.listen(200ms);
    EXPECT_FALSE(session_.hasLineBeginning("Trying to start audio device"));
    EXPECT_FALSE(session_.hasLine("Unknown command"));
}

TEST_F(Link, LogsUnknownCommandsAndGoesOn) {
    startAndWaitForFrames();
    int count = 0;
    for (const char type : {'\0', '\1', '\4', '\10', '\x7F'}) {
        send(packet(type, "data"));
        ASSERT_TRUE(session_.waitForLine("Unknown command", ++count)) << session_.logText();
    }
    EXPECT_TRUE(session_.waitForFrames(session_.shown().size() + 5));
}

TEST_F(Link, SurvivesTheLongestPacketOfAnUnknownType) {
    startAndWaitForFrames();
    send(packet('\x20', QByteArray(65535, 'x')));
    ASSERT_TRUE(session_.waitForLine("Unknown command")) << session_.logText();
    EXPECT_TRUE(session_.waitForFrames(session_.shown().size() + 5));
}

TEST_F(Link, CarriesPositionsAfterTheFrameTheyBelongTo) {
    FlvOptions options;
    options.metadata = {{"fragmentPosition", 7000}, {"fragmentDuration", 60000}};
    options.timedMetadata = {{400, {{"absolute_time", 1.4e12}}},
                             {800, {{"fragmentPosition", 9000}, {"fragmentDuration", 0}}},
                             {1200, {{"fragmentPosition", 8000}, {"fragmentDuration", 50000}}}};
    server_.route("/positions.flv", pacedHandler(makeFlv(clip_, options), {.burstMs = 3000}));
    session_.start(server_.url("/positions.flv"));
    ASSERT_TRUE(session_.waitForFrames(50)) << session_.logText();
    const std::vector<Position> expected = {
        {.fragmentPosition = 7000, .fragmentDuration = 60000, .framesBefore = 1},
        {.absoluteTime = 1'400'000'000'000, .framesBefore = 11},
        {.fragmentPosition = 8000, .fragmentDuration = 50000, .framesBefore = 31}};
    EXPECT_EQ(session_.positions(), expected) << session_.logText();
}

TEST(WithoutAParent, TheWorkerGoesOnToTheEndOfTheStream) {
    ClipSpec spec;
    spec.frames = 40;
    const Clip clip = encode(spec);
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(clip), {.burstMs = 1500}));
    const parent::FrameChannel channel;
    const TemporaryFolder folder;
    ChildProcess worker({.command = {MEDIAWORKER_PROGRAM, server.url("/live.flv"),
                                     channel.name().toStdString(), "nobody-listens-here"},
                         .errors = folder / "log"});
    EXPECT_EQ(worker.wait(), 3) << readText(folder / "log");
    EXPECT_NE(readText(folder / "log").find("http reader finished\n"), std::string::npos);
}

TEST(WithoutAReaderOfTheLog, TheWorkerShowsItsPictures) {
    if (platform::kIsWindows) {
        GTEST_SKIP() << "it takes a shell to close the log's other end";
    }
    ClipSpec spec;
    spec.frames = 40;
    const Clip clip = encode(spec);
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(clip), {.burstMs = 1500}));
    // The reader of standard error ends at once, so that every line of the log meets a closed pipe.
    Session session({.prefix = {QStringLiteral("bash"), QStringLiteral("-c"),
                                QStringLiteral(R"(exec "$0" "$@" 2> >(exit))")}});
    session.start(server.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(), 3);
    EXPECT_EQ(session.lastPictureNumber(), 39);
}

} // namespace
} // namespace mediaworker::test
