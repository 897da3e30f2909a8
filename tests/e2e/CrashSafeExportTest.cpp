// What is left of a recording whose worker or parent is gone from one moment to the next.

#include "Mp4File.h"
#include "Session.h"

#include "support/ChildProcess.h"
#include "support/servers/HttpServer.h"

#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <limits>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

/// Six seconds with a key frame at their begin: a fragment does not wait for one.
Clip longClip() {
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    spec.widthPx = 160;
    spec.heightPx = 90;
    spec.frames = 150;
    spec.gop = 150;
    return encode(spec);
}

class CrashSafeExport : public testing::Test {
protected:
    CrashSafeExport() {
        server_.route("/live.flv", [this](HttpResponse& response) {
            for (const TimedBytes& piece : pieces_) {
                if (piece.ms > stopMs_ || !response.sleepMs(std::max<std::int64_t>(piece.ms - sentMs_, 0)) ||
                    !response.send(piece.bytes)) {
                    break;
                }
                sentMs_ = piece.ms;
            }
            response.waitForClientToLeave();
        });
    }
    ~CrashSafeExport() override { server_.stop(); }
    CrashSafeExport(const CrashSafeExport&) = delete;
    CrashSafeExport& operator=(const CrashSafeExport&) = delete;

    void record(Session& session) {
        parent::ExportJob job;
        job.url = QString::fromStdString(server_.url("/live.flv"));
        job.outputPath = QString::fromStdString(file_.string());
        ASSERT_TRUE(session.worker().start(job)) << session.worker().errorString().toStdString();
    }
    static Session::Options asTheLibraryAsks() {
        return {
            .environment = {{"MEDIAWORKER_OPTIONS", parent::optionsOf(parent::ExportJob{}).toStdString()}}};
    }

    [[nodiscard]] double recordedMs() const {
        std::error_code none;
        if (const auto size = std::filesystem::file_size(file_, none); none || size == 0) {
            return 0; // no fragment yet
        }
        const auto times = packetTimes(file_, "v");
        return times.empty() ? 0 : times.back().dtsMs - times.front().dtsMs;
    }

    const std::vector<TimedBytes> pieces_ = makeFlv(longClip());
    std::atomic<std::int64_t> sentMs_{0};
    std::atomic<std::int64_t> stopMs_{std::numeric_limits<std::int64_t>::max()};
    TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_ / "film.mp4";
    HttpServer server_;
};

TEST_F(CrashSafeExport, OfAKilledWorkerLacksTheLastSecondsAtMost) {
    Session session(asTheLibraryAsks());
    record(session);
    ASSERT_TRUE(session.waitUntil([&] { return sentMs_ >= 3300; }));
    const std::int64_t sentMs = sentMs_;
    session.worker().kill();
    ASSERT_TRUE(session.waitForExit());
    EXPECT_GE(recordedMs(), static_cast<double>(sentMs - 2000));
    EXPECT_EQ(complaints(file_), "");
}

TEST_F(CrashSafeExport, OfAParentThatIsGoneIsClosed) {
    Session session(asTheLibraryAsks());
    record(session);
    ASSERT_TRUE(session.waitUntil([&] { return sentMs_ >= 500; }));
    const std::int64_t sentMs = sentMs_;
    session.listen(200ms * kSlowness); // for what was sent to be received
    session.worker().disconnectLink(); // the system does it for a parent that is killed
    ASSERT_EQ(session.waitForExit(), 1) << session.logText();
    EXPECT_GE(recordedMs(), static_cast<double>(sentMs - 80));
    EXPECT_EQ(complaints(file_), "");
}

TEST_F(CrashSafeExport, OfAStreamThatStandsStillHasAllOfIt) {
    stopMs_ = 700;
    Session session(asTheLibraryAsks());
    record(session);
    // Nobody closes the file, and no further packet comes.
    EXPECT_TRUE(session.waitUntil([&] { return recordedMs() >= 680; })) << recordedMs();
    EXPECT_TRUE(session.worker().isRunning());
}

TEST_F(CrashSafeExport, ThatFinishesIsAnOrdinaryFile) {
    stopMs_ = 700;
    Session session(asTheLibraryAsks());
    record(session);
    ASSERT_TRUE(session.waitUntil([&] { return recordedMs() >= 680; }));
    ASSERT_TRUE(session.worker().finish());
    ASSERT_EQ(session.waitForExit(), 0) << session.logText();
    const std::string bytes = readFile(file_);
    EXPECT_EQ(bytes.substr(4, 8), "ftypisom");
    EXPECT_EQ(bytes.substr(112 + 4, 4), "mdat") << "all fragments are its content";
    EXPECT_EQ(complaints(file_), "");
}

} // namespace
} // namespace mediaworker::test
