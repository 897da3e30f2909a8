#include "Session.h"

#include "support/FlvWriter.h"
#include "support/servers/HttpServer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

constexpr std::uint8_t kALaw = 0x70;
constexpr std::size_t kPictures = 10;

/// Half a second of pictures.
void addHead(FlvWriter& writer, int soundRate) {
    const Clip clip = encode(ClipSpec{});
    writer.header();
    writer.metadata(0, {{"videocodecid", 7},
                        {"width", clip.spec.widthPx},
                        {"height", clip.spec.heightPx},
                        {"audiocodecid", kALaw},
                        {"audiosamplerate", soundRate},
                        {"audiochannels", 1}});
    writer.video(0, VideoCodec::Avc, true, FlvWriter::kSequenceHeader, clip.videoConfig);
    for (std::size_t i = 0; i < kPictures; ++i) {
        const ClipPacket& picture = clip.video.at(i);
        writer.video(static_cast<std::uint32_t>(picture.dtsMs), VideoCodec::Avc, picture.isKey,
                     FlvWriter::kFrames, picture.bytes);
    }
}

/// What a recording sends that moves only when something moves: under half a second of pictures, and then
/// more sound than the worker has room for, which is heard in a few seconds, since it has a high rate.
std::vector<std::uint8_t> fewPicturesAndMuchSound() {
    FlvWriter writer;
    addHead(writer, 192'000);
    constexpr std::uint32_t kStampMs = 400;
    constexpr std::size_t kTagBytes = 1024;
    constexpr std::size_t kSoundBytes = std::size_t{3} << 19U; // 1 MiB and what else there is room for
    const std::vector<std::uint8_t> sound(kTagBytes, 0xD5);
    for (std::size_t i = 0; i < kSoundBytes / kTagBytes; ++i) {
        writer.audio(kStampMs, kALaw, sound);
    }
    return writer.take();
}

struct Row {
    const char* name;
    const char* path;
    bool staysOpen; ///< behind the sound
    int exitCode;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

class SoundWhileBuffering : public testing::TestWithParam<Row> {};

TEST_P(SoundWhileBuffering, LetsPicturesGoOnAndTheWorkerEnd) {
    HttpServer server;
    server.route(GetParam().path, [stream = fewPicturesAndMuchSound()](HttpResponse& response) {
        response.send(stream);
        if (GetParam().staysOpen) {
            response.waitForClientToLeave();
        }
    });
    Session session;
    session.start(server.url(GetParam().path));
    ASSERT_TRUE(session.waitForFrames(kPictures)) << session.logText();
    ASSERT_EQ(session.waitForExit(), GetParam().exitCode) << session.logText();
    EXPECT_EQ(session.shown().size(), kPictures);
    EXPECT_TRUE(session.hasLineBeginning("ko_player::Player::finishBuffering: buf end: "))
        << session.logText();
}

INSTANTIATE_TEST_SUITE_P(All, SoundWhileBuffering,
                         testing::Values(Row{"Live", "/live.flv", true, 2},
                                         Row{"LiveThatEnds", "/live.flv", false, 3},
                                         Row{"Archive", "/archive/1", true, 2},
                                         Row{"ArchiveThatEnds", "/archive/1", false, 3}),
                         [](const auto& instance) { return instance.param.name; });

class SoundRate : public testing::TestWithParam<int> {};

TEST_P(SoundRate, ThatNothingPlaysLeavesThePictures) {
    HttpServer server;
    server.route("/live.flv", [](HttpResponse& response) {
        FlvWriter writer;
        addHead(writer, GetParam());
        for (int i = 0; i < 50; ++i) {
            writer.audio(static_cast<std::uint32_t>(i * 20), kALaw, std::vector<std::uint8_t>(160, 0xD5));
        }
        response.send(writer.take());
    });
    Session session;
    session.start(server.url("/live.flv"));
    ASSERT_EQ(session.waitForExit(), 3) << session.logText();
    EXPECT_EQ(session.shown().size(), kPictures);
    EXPECT_TRUE(session.hasLine("ko_player::Player::startAudio: failed with exception: "
                                "AudioPipeline: bad out parameters"))
        << session.logText();
}

INSTANTIATE_TEST_SUITE_P(All, SoundRate, testing::Values(1, 2, 3, 4, 1'000'000'000));

} // namespace
} // namespace mediaworker::test
