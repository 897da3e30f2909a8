#include "LiveServer.h"
#include "Judge.h"
#include "Recording.h"
#include "Spectator.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

/// Long enough for somebody who joins late and an export that ends by itself.
Made liveFilm(Workshop& workshop) {
    const auto file = workshop / "stream.flv";
    Film film{.pictures = h264(), .sound = aac()};
    film.seconds = 24;
    encodeFilm(film, file);
    return {file, file};
}

/// What of a track was written, found by the sizes of its packets.
ProbedTrack partOf(const ProbedTrack& sent, const ProbedTrack& written) {
    const auto sameSize = [](const ProbedPacket& a, const ProbedPacket& b) { return a.bytes == b.bytes; };
    const auto begin = std::search(sent.packets.begin(), sent.packets.end(), written.packets.begin(),
                                   written.packets.end(), sameSize);
    ProbedTrack part = sent;
    const auto count = std::min<std::ptrdiff_t>(std::distance(begin, sent.packets.end()),
                                                static_cast<std::ptrdiff_t>(written.packets.size()));
    part.packets.assign(begin, begin + count);
    return part;
}

class Live : public testing::Test {
protected:
    void SetUp() override {
        try {
            film_ = Workshop::get("LiveFilm", liveFilm).flv;
            server_ = std::make_unique<LiveServer>();
        } catch (const MissingTool& missing) {
            GTEST_SKIP() << missing.what();
        }
    }

    std::filesystem::path film_;
    std::unique_ptr<LiveServer> server_;
    const TemporaryFolder folder_;
};

TEST_F(Live, AStreamThatWasJoinedLateIsSeenHeardAndExported) {
    constexpr int kExportMs = 2000;
    Spectator viewer(Reading::Standard, /*hasSound*/ true);
    Recording recording({.environment = {{"MEDIAWORKER_OPTIONS", optionsOf(Reading::Standard)}}});
    std::vector<int> progress;
    QObject::connect(&recording.worker(), &parent::WorkerProcess::progress,
                     [&](int percent) { progress.push_back(percent); });

    server_->publish(film_);
    recording.listen(3300ms); // between two key frames
    const auto output = folder_ / "live.mp4";
    recording.start(server_->url(), output, kExportMs);
    viewer.start(server_->url(), /*hasVideo*/ true);
    ASSERT_TRUE(viewer.session().waitForFrames(125, 20s)) << viewer.session().logText();

    // Seen: from a key frame on, each picture with the time that it has in the film.
    const auto& shown = viewer.session().shown();
    std::int64_t expectedMs = shown.front().ptsMs;
    EXPECT_GE(expectedMs, 2000) << "joined at the begin";
    const std::int64_t filmBeginsMs = contentsOf({film_, film_}).picturesMs.front();
    EXPECT_EQ((expectedMs - filmBeginsMs) % 1000, 0) << "no key frame";
    for (const Shown& picture : shown) {
        EXPECT_EQ(picture.ptsMs, expectedMs);
        expectedMs += 1000 / kFilmFps;
    }
    EXPECT_EQ(viewer.wrongPictures(), std::vector<std::string>{});
    EXPECT_GE(viewer.heard(), 2s) << viewer.session().logText();

    // Exported: it ends by itself 10 s behind the length that was asked for, counted from its begin.
    ASSERT_EQ(recording.waitForExit(20s), 0) << recording.logText();
    ASSERT_FALSE(progress.empty());
    EXPECT_LT(progress.front(), 60) << "the stream's stamps were taken for progress";
    EXPECT_EQ(progress.back(), 100);
    const auto written = ffprobe(output);
    ASSERT_EQ(written.size(), 2U);
    Contents sent;
    for (const ProbedTrack& track : ffprobe(server_->record())) {
        const ProbedTrack* inFile = trackOf(written, track.isVideo);
        ASSERT_NE(inFile, nullptr);
        sent.tracks.push_back(partOf(track, *inFile));
        const auto length = inFile->packets.back().dts - inFile->packets.front().dts;
        EXPECT_GE(length, 11500ms);
        EXPECT_LE(length, 13000ms);
    }
    for (const WrittenTrack& track : compare(sent, written)) {
        EXPECT_TRUE(track.isInStep) << track.codec << "\n" << recording.logText();
    }
    EXPECT_TRUE(trackOf(written, true)->packets.front().isKey);
}

} // namespace
} // namespace mediaworker::test
