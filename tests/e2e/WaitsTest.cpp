#include "Session.h"

#include "support/ChildProcess.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace mediaworker::test {
namespace {

/// What a server sends before it stands still for good.
std::vector<std::vector<std::uint8_t>> beginnings(const std::vector<TimedBytes>& pieces) {
    std::vector<std::vector<std::uint8_t>> result;
    std::vector<std::uint8_t> sent;
    for (const TimedBytes& piece : pieces) {
        if (piece.kind == PieceKind::Video) {
            std::vector<std::uint8_t> half = sent;
            half.insert(half.end(), piece.bytes.begin(),
                        piece.bytes.begin() + static_cast<std::ptrdiff_t>(piece.bytes.size() / 2));
            result.push_back(half);
        }
        sent.insert(sent.end(), piece.bytes.begin(), piece.bytes.end());
        result.push_back(sent);
        if (piece.kind == PieceKind::Video) {
            break;
        }
    }
    return result;
}

TEST(AServerThatStandsStill, EndsTheWorkerByItsTimeOutWhereverThatIs) {
    HttpServer server;
    server.route("/accepted.flv", [](HttpResponse& response) { response.waitForClientToLeave(); });
    server.route("/answered.flv", [](HttpResponse& response) {
        response.sendHeader();
        response.waitForClientToLeave();
    });
    std::vector<std::string> paths = {"/accepted.flv", "/answered.flv"};
    for (const auto& beginning : beginnings(makeFlv(encode(ClipSpec{})))) {
        // By "+" GCC 12 sees an overlapping copy in it, which there is not.
        paths.push_back(std::string("/").append(std::to_string(beginning.size())).append(".flv"));
        server.route(paths.back(), [beginning](HttpResponse& response) {
            response.send(beginning);
            response.waitForClientToLeave();
        });
    }
    std::vector<std::unique_ptr<Session>> sessions; // all at once: each takes seconds
    for (const std::string& path : paths) {
        sessions.push_back(std::make_unique<Session>());
        sessions.back()->start(server.url(path));
    }
    for (std::size_t i = 0; i < sessions.size(); ++i) {
        EXPECT_EQ(sessions[i]->waitForExit(), 2) << paths[i] << "\n" << sessions[i]->logText();
        EXPECT_TRUE(sessions[i]->hasLine("exit on frame timeout")) << paths[i];
    }
}

TEST(AParentThatLeaves, EndsAWorkerThatWaitsForItsSemaphore) {
    HttpServer server;
    server.route("/live.flv",
                 pacedHandler(makeFlv(encode(ClipSpec{})), {.burstMs = 1500, .staysOpen = true}));
    Session session;
    session.start(server.url("/live.flv"));
    const auto hold = session.frames().hold();
    ASSERT_TRUE(hold);
    ASSERT_TRUE(session.waitUntil([&] {
        return session.hasLineBeginning("ko_player::VideoOutput::handleFirstFrame: inParams: ");
    })) << session.logText();
    session.worker().disconnectLink();
    EXPECT_EQ(session.waitForExit(), 0) << session.logText();
    EXPECT_EQ(session.formatChanges(), 0);
}

TEST(AParentThatLeaves, EndsAWorkerThatWaitsForTheEndOfAPauseAtTheEndOfTheStream) {
    HttpServer server;
    server.route("/short.flv", pacedHandler(makeFlv(encode(ClipSpec{})), {.speed = 0}));
    Session session;
    session.start(server.url("/short.flv"));
    ASSERT_TRUE(session.worker().pause());
    ASSERT_TRUE(session.waitForLine("http reader finished")) << session.logText();
    ASSERT_TRUE(session.waitForLine("ko_player::Player::setPause: paused: 1")) << session.logText();
    session.worker().disconnectLink();
    EXPECT_EQ(session.waitForExit(), 0) << session.logText();
}

TEST(AParentThatLeaves, EndsAnExportThatWaitsForItsServer) {
    HttpServer server;
    server.route("/silent.flv", [](HttpResponse& response) { response.waitForClientToLeave(); });
    const TemporaryFolder folder;
    Session session;
    parent::ExportJob job;
    job.url = QString::fromStdString(server.url("/silent.flv"));
    job.outputPath = QString::fromStdString((folder / "out.mp4").string());
    job.durationMs = 1000;
    ASSERT_TRUE(session.worker().start(job));
    ASSERT_TRUE(session.waitUntil([&] { return session.connectedPid().has_value(); }));
    session.worker().disconnectLink();
    EXPECT_EQ(session.waitForExit(), 1) << session.logText();
}

} // namespace
} // namespace mediaworker::test
