#include "Session.h"

#include "support/ChildProcess.h"
#include "support/Platform.h"
#include "support/servers/HttpServer.h"
#include "support/servers/Pacing.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

TEST(CommandLine, WithTooFewArgumentsEndsWithOneAndSaysNothing) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, {"http://127.0.0.1/"}, {"http://127.0.0.1/", "channel"}}) {
        const TemporaryFolder folder;
        std::vector<std::string> command = {MEDIAWORKER_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ChildProcess worker({.command = command, .output = folder / "out", .errors = folder / "err"});
        EXPECT_EQ(worker.wait(), 1) << arguments.size();
        EXPECT_EQ(readFile(folder / "out"), "");
        EXPECT_EQ(readFile(folder / "err"), "");
    }
}

struct UrlCase {
    const char* name;
    const char* scheme;
    const char* path;
    const char* line;
    bool disablesBuffering;
};

void PrintTo(const UrlCase& row, std::ostream* out) {
    *out << row.name;
}

class UrlOf : public testing::TestWithParam<UrlCase> {};

TEST_P(UrlOf, DecidesOnTimeOutsAndBuffering) {
    const RefusingPort port;
    Session session;
    session.start(GetParam().scheme + std::string("://127.0.0.1:") + std::to_string(port.port()) +
                  GetParam().path);
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();
    EXPECT_EQ(session.log().front().text, GetParam().line);
    EXPECT_EQ(session.hasLine("disable buffering"), GetParam().disablesBuffering);
    EXPECT_EQ(session.hasLineBeginning("ko_player::Player::beginBuffering: buf start"),
              !GetParam().disablesBuffering);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, UrlOf,
    testing::Values(
        UrlCase{"Live", "http", "/live.flv",
                "set timeouts for live local: first frame 5 seconds, inter frame 3 seconds", false},
        UrlCase{"LiveCloud", "https", "/live.flv",
                "set timeouts for live cloud: first frame 8 seconds, inter frame 5 seconds", false},
        UrlCase{"Archive", "http", "/archive/1",
                "set timeouts for archive local: first frame 10 seconds, inter frame 5 seconds", false},
        UrlCase{"ArchiveCloud", "https", "/archive/1",
                "set timeouts for archive cloud: first frame 13 seconds, inter frame 7 seconds", false},
        UrlCase{"CapitalArchiveIsLive", "http", "/Archive/1",
                "set timeouts for live local: first frame 5 seconds, inter frame 3 seconds", false},
        UrlCase{"ArchiveAtSpeedOne", "http", "/archive/1?speed=1",
                "set timeouts for archive local: first frame 10 seconds, inter frame 5 seconds", false},
        UrlCase{"ArchiveAtSpeedTwo", "http", "/archive/1?speed=2",
                "set timeouts for archive local: first frame 10 seconds, inter frame 5 seconds", true},
        UrlCase{"ArchiveAtHalfSpeed", "http", "/archive/1?speed=0.5",
                "set timeouts for archive local: first frame 10 seconds, inter frame 5 seconds", true},
        UrlCase{"LiveAtSpeedFour", "http", "/live.flv?speed=4",
                "set timeouts for live local: first frame 5 seconds, inter frame 3 seconds", false}),
    [](const auto& instance) { return instance.param.name; });

TEST(BrokenStream, EndsTheWorkerWithOneAndTheShortChunkInTheLog) {
    HttpServer server;
    server.route("/live.flv", [](HttpResponse& response) {
        response.send("<html>no camera here</html>");
        response.waitForClientToLeave();
    });
    Session session;
    session.start(server.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(), 1) << session.logText();
    EXPECT_TRUE(session.hasLine("ko_player::Player::consumeImpl: ec: Invalid argument, what: invalid header"))
        << session.logText();
    EXPECT_EQ(session.log().back().text, "<html>no camera here</html>");
}

TEST(BrokenStream, OfALongChunkIsNotLogged) {
    HttpServer server;
    server.route("/live.flv", [](HttpResponse& response) {
        response.send(std::string(1024, 'x'));
        response.waitForClientToLeave();
    });
    Session session;
    session.start(server.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(), 1) << session.logText();
    EXPECT_EQ(session.log().back().text,
              "ko_player::Player::consumeImpl: ec: Invalid argument, what: invalid header");
}

TEST(BrokenStream, AfterGoodPicturesEndsTheWorkerWithOne) {
    const Clip clip = encode(ClipSpec{});
    HttpServer server;
    server.route("/live.flv", [&](HttpResponse& response) {
        auto pieces = makeFlv(clip);
        pieces.resize(40);
        servePaced(response, pieces, {.burstMs = 1000});
        const std::uint8_t body[5] = {};
        FlvWriter broken;
        broken.tag(77, 0, body);
        response.send(broken.bytes());
        response.waitForClientToLeave();
    });
    Session session;
    session.start(server.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(), 1) << session.logText();
    EXPECT_TRUE(
        session.hasLine("ko_player::Player::consumeImpl: ec: Invalid argument, what: undef tag type:77"))
        << session.logText();
}

TEST(LocalFile, IsShownToItsEndAndThenTimesOut) {
    const Clip clip = encode(ClipSpec{});
    const std::string file = encodedFile(ClipSpec{}).string();
    Session session;
    session.start("file:///" + file);
    ASSERT_EQ(session.waitForExit(), 2) << session.logText();
    EXPECT_EQ(session.log().front().text,
              "set timeouts for file file:///" + file + ": first frame 1 seconds, inter frame 1 seconds");
    EXPECT_EQ(session.shown().size(), clip.video.size());
    EXPECT_EQ(session.shown().back().numbers.top, 49);
}

TEST(LocalFile, ThatDoesNotExistTimesOut) {
    Session session;
    session.start("file:///no/such/file.mp4");
    ASSERT_EQ(session.waitForExit(), 2) << session.logText();
    EXPECT_TRUE(session.hasLineBeginning("couldn't open file ")) << session.logText();
    EXPECT_EQ(session.log().back().text, "exit on frame timeout");
}

TEST(FrameFileThatCannotBeMade, EndsTheWorkerWithOneAtTheFirstPicture) {
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(encode(ClipSpec{})), {.burstMs = 1500}));
    const TemporaryFolder folder;
    const std::filesystem::path file = folder / "missing" / "channel";
    const auto name = std::filesystem::relative(file, QDir::tempPath().toStdString());
    const QString path = QDir::fromNativeSeparators(QDir::tempPath() + QDir::separator() +
                                                    QString::fromStdString(name.string()));
    const parent::FrameChannel channel(QString::fromStdString(name.string()));
    ChildProcess worker({.command = {MEDIAWORKER_PROGRAM, server.url("/live.flv"), name.string(), "nobody"},
                         .errors = folder / "log"});
    EXPECT_EQ(worker.wait(), 1);
    EXPECT_NE(readText(folder / "log").find("\ncan't map the frame file: " + path.toStdString() + ": "),
              std::string::npos)
        << readText(folder / "log");
}

TEST(FrameFileBeyondTheLimitForFiles, EndsTheWorkerWithOneAtTheFirstPicture) {
    if (platform::kIsWindows) {
        GTEST_SKIP() << "Windows has no limit for the size of a process's files";
    }
    HttpServer server;
    server.route("/live.flv", pacedHandler(makeFlv(encode(ClipSpec{})), {.burstMs = 1500}));
    Session session({.prefix = {QStringLiteral("bash"), QStringLiteral("-c"),
                                QStringLiteral("ulimit -f 100; exec \"$0\" \"$@\"")}});
    session.start(server.url("/live.flv"));
    EXPECT_EQ(session.waitForExit(), 1) << session.logText();
    EXPECT_TRUE(session.hasLineBeginning("can't map the frame file: ")) << session.logText();
}

/// What the file holds, once it holds something; empty when that takes too long.
std::string waitForContent(const std::filesystem::path& path) {
    const auto deadline = Clock::now() + 20s;
    while (Clock::now() < deadline) {
        if (std::filesystem::exists(path)) {
            if (std::string text = readText(path); text.ends_with('\n')) {
                return text;
            }
        }
        std::this_thread::sleep_for(10ms);
    }
    return {};
}

class ParentProcess : public testing::Test {
protected:
    ParentProcess() {
        const Clip clip = encode(ClipSpec{});
        server_.route("/live.flv", pacedHandler(makeFlv(clip, lasting(clip, 30s)), {.burstMs = 1500}));
    }

    /// Kills a parent that shows pictures. Gives the name of its frame channel.
    std::string killOne(std::vector<std::string> options = {}) {
        std::vector<std::string> command = {DOOMED_PARENT, MEDIAWORKER_PROGRAM, server_.url("/live.flv"),
                                            WITNESS, (folder_ / "code").string()};
        std::ranges::move(options, std::back_inserter(command));
        parent_.emplace(ChildProcess::Options{.command = command, .output = folder_ / "names"});
        std::istringstream names(waitForContent(folder_ / "names"));
        parent_->kill();
        std::string channel;
        std::string link;
        EXPECT_TRUE(names >> channel >> link);
        QFile::remove(QDir::temp().filePath(QString::fromStdString(link))); // which it could not do any more
        return channel;
    }

    /// By itself, and with 0. On Windows its witness ends with the parent, and it as well, whatever it does.
    void expectEndOfWorker() {
        if (!platform::kIsWindows) {
            EXPECT_EQ(waitForContent(folder_ / "code"), "0\n");
            return;
        }
        const auto deadline = Clock::now() + 20s;
        while (!server_.exchanges().at(0).clientLeft && Clock::now() < deadline) {
            std::this_thread::sleep_for(10ms);
        }
        EXPECT_TRUE(server_.exchanges().at(0).clientLeft);
    }

    HttpServer server_;
    TemporaryFolder folder_;
    std::optional<ChildProcess> parent_; ///< on Windows, what it has started ends with this
};

TEST_F(ParentProcess, ThatIsKilledEndsTheWorkerWithZero) {
    const std::string channel = killOne();
    expectEndOfWorker();
    const parent::FrameChannel leftovers(QString::fromStdString(channel)); // removes them
}

TEST_F(ParentProcess, ThatIsKilledWithTheSemaphoreInItsHandsEndsTheWorkerAndLeavesTheSemaphoreFree) {
    const std::string channel = killOne({"holding"});
    expectEndOfWorker();
    parent::FrameChannel next(QString::fromStdString(channel));
    EXPECT_TRUE(next.hold());
}

TEST(Crash, EndsTheWorkerWithOne) {
    HttpServer server;
    server.route("/live.flv", [](HttpResponse& response) {
        response.sendHeader();
        response.waitForClientToLeave();
    });
    Session session;
    session.start(server.url("/live.flv"));
    ASSERT_TRUE(session.waitUntil([&] { return session.connectedPid().has_value(); }));
    ASSERT_TRUE(platform::makeCrash(session.worker().processId()));
    EXPECT_EQ(session.waitForExit(), 1) << session.logText();
}

} // namespace
} // namespace mediaworker::test
