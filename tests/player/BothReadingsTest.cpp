// What the strict reading plays, the standard reading plays as well: each stream through both.

#include "FakeHandlers.h"
#include "player/Player.h"
#include "support/FlvWriter.h"
#include "support/LogCapture.h"
#include "support/ManualClock.h"
#include "support/media/FlvStream.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace ko_player {
namespace {

using mediaworker::test::AudioCodec;
using mediaworker::test::Clip;
using mediaworker::test::ClipSpec;
using mediaworker::test::encode;
using mediaworker::test::FakeAudioHandler;
using mediaworker::test::FakeVideoHandler;
using mediaworker::test::FlvOptions;
using mediaworker::test::FlvWriter;
using mediaworker::test::LogCapture;
using mediaworker::test::makeFlv;
using mediaworker::test::ManualClock;
using mediaworker::test::toBytes;
using mediaworker::test::VideoCodec;

using Bytes = std::vector<std::uint8_t>;

/// Time runs faster than pictures are decoded here, and no wait is to end by itself.
constexpr FrameTimeouts kNever{std::chrono::seconds(100'000'000), std::chrono::seconds(100'000'000)};

/// What somebody in front of it sees and hears.
struct Seen {
    std::vector<std::int64_t> pictures;
    std::vector<std::string> metadata;
    bool hasSound = false;
    bool isAccepted = false;
};

Seen play(const Bytes& stream, FlvReading reading) {
    const LogCapture log;
    ManualClock clock;
    const auto video = std::make_shared<FakeVideoHandler>();
    const auto audio = std::make_shared<FakeAudioHandler>();
    Seen seen;
    {
        std::atomic<bool> isOver{false};
        const std::jthread time([&] {
            while (!isOver) {
                clock.advance(std::chrono::milliseconds(1));
                std::this_thread::yield();
            }
        });
        {
            Player player(video, audio, clock, {.flv = reading});
            player.start(Buffering::Off, kNever);
            seen.isAccepted = player.consume(stream.data(), stream.size());
            player.stop();
        }
        isOver = true;
    }
    seen.pictures = video->shown();
    seen.hasSound = !audio->parts().empty();
    for (const std::string& event : video->events()) {
        if (event.starts_with("value ") || event.starts_with("pair ")) {
            seen.metadata.push_back(event);
        }
    }
    return seen;
}

struct Row {
    const char* name;
    ClipSpec spec;
    FlvOptions options;
    std::size_t heldBack = 0; ///< pictures that the strict reading leaves in the decoder
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

ClipSpec spec(AudioCodec audio = AudioCodec::None, VideoCodec video = VideoCodec::Avc) {
    ClipSpec result;
    result.codec = video;
    result.audio = audio;
    result.zeroLatency = true;
    result.sampleRate = audio == AudioCodec::ALaw || audio == AudioCodec::MuLaw ? 8000 : 44100;
    result.channels = audio == AudioCodec::ALaw || audio == AudioCodec::MuLaw ? 1 : 2;
    return result;
}

std::vector<Row> rows() {
    std::vector<Row> result{{"Avc", spec(), {}},
                            {"AvcAac", spec(AudioCodec::Aac), {}},
                            {"AvcMp3", spec(AudioCodec::Mp3), {}},
                            {"AvcALaw", spec(AudioCodec::ALaw), {}},
                            {"AvcMuLaw", spec(AudioCodec::MuLaw), {}},
                            {"Hevc", spec(AudioCodec::Aac, VideoCodec::Hevc), {}}};
    const auto add = [&](const char* name, auto&& change, AudioCodec audio = AudioCodec::Aac) {
        Row row{name, spec(audio), {}};
        change(row);
        result.push_back(row);
    };
    add("BFrames", [](Row& row) {
        row.spec.zeroLatency = false;
        row.spec.bFrames = 2;
        row.heldBack = 2;
    });
    add("BFramesWithoutCompositionTimes", [](Row& row) {
        row.spec.zeroLatency = false;
        row.spec.bFrames = 2;
        row.heldBack = 2;
        row.options.hasCompositionTimes = false;
    });
    add("TenBit", [](Row& row) { row.spec.tenBit = true; });
    add("WithoutMetadata", [](Row& row) { row.options.hasMetadata = false; });
    add("WithoutSequenceHeaders", [](Row& row) { row.options.hasSequenceHeaders = false; });
    add("WithoutSize", [](Row& row) { row.options.withoutMetadata = {"width", "height"}; });
    add("HeaderWithoutSound", [](Row& row) { row.options.headerFlags = 0x01; });
    add("EndOfSequence", [](Row& row) { row.options.endOfSequence = true; });
    add("LateStart", [](Row& row) { row.options.startMs = 1'800'000; });
    add("ThreeTimes", [](Row& row) { row.options.repeats = 3; });
    add("MonoAac", [](Row& row) { row.spec.channels = 1; });
    add("OtherHeaderByte", [](Row& row) { row.options.audioHeaderByte = 0xAE; });
    add("Positions", [](Row& row) {
        row.options.timedMetadata = {{80, {{"absolute_time", 1.4e12}}},
                                     {400, {{"fragmentPosition", 5}, {"fragmentDuration", 6}}}};
    });
    return result;
}

class BothReadings : public testing::TestWithParam<Row> {};

TEST_P(BothReadings, PlayIt) {
    const Row& row = GetParam();
    const Bytes stream = toBytes(makeFlv(encode(row.spec), row.options));
    const Seen strict = play(stream, FlvReading::Strict);
    const Seen standard = play(stream, FlvReading::Standard);
    EXPECT_TRUE(strict.isAccepted);
    EXPECT_TRUE(standard.isAccepted);
    EXPECT_EQ(standard.pictures.size(), strict.pictures.size() + row.heldBack);
    EXPECT_TRUE(std::is_sorted(standard.pictures.begin(), standard.pictures.end()));
    EXPECT_EQ(standard.metadata, strict.metadata);
    EXPECT_TRUE(standard.hasSound || !strict.hasSound);
    if (row.options.hasSequenceHeaders) {
        EXPECT_EQ(standard.pictures.size(), static_cast<std::size_t>(row.spec.frames * row.options.repeats));
        EXPECT_EQ(standard.hasSound, row.spec.audio != AudioCodec::None);
    }
}

INSTANTIATE_TEST_SUITE_P(All, BothReadings, testing::ValuesIn(rows()),
                         [](const auto& test) { return test.param.name; });

TEST(BothReadings, EvenPicturesFromTheFirstOn) {
    ClipSpec bFrames;
    bFrames.bFrames = 2;
    const Seen seen = play(toBytes(makeFlv(encode(bFrames))), FlvReading::Standard);
    ASSERT_EQ(seen.pictures.size(), 50U);
    EXPECT_EQ(seen.pictures.front(), 80);
    for (std::size_t i = 1; i < seen.pictures.size(); ++i) {
        EXPECT_EQ(seen.pictures[i] - seen.pictures[i - 1], 40);
    }
}

TEST(BothReadings, MetadataStayWithPicturesOutOfOrder) {
    ClipSpec bFrames;
    bFrames.bFrames = 2;
    const Clip clip = encode(bFrames);
    // One for every picture, in the order of the packets: each has its own time.
    FlvWriter writer;
    writer.header();
    writer.video(0, VideoCodec::Avc, true, FlvWriter::kSequenceHeader, clip.videoConfig);
    for (const auto& packet : clip.video) {
        const auto dts = static_cast<std::uint32_t>(packet.dtsMs);
        writer.metadata(dts, {{"absolute_time", static_cast<double>(1'000'000 + packet.ptsMs)}});
        writer.video(dts, VideoCodec::Avc, packet.isKey, FlvWriter::kFrames, packet.bytes,
                     static_cast<std::int32_t>(packet.ptsMs - packet.dtsMs));
    }
    const Seen seen = play(writer.take(), FlvReading::Standard);
    std::vector<std::string> expected;
    for (const std::int64_t pts : seen.pictures) {
        expected.push_back("value " + std::to_string(1'000'000 + pts));
    }
    EXPECT_EQ(seen.metadata, expected);
}

constexpr int kFramesBeforeARestart = 25;

/// A server that is restarted counts from 0 again, or from wherever its clock stands.
std::vector<std::int64_t> shownOverARestart(FlvReading reading, std::uint32_t from, std::uint32_t to) {
    ClipSpec shortClip = spec(AudioCodec::Aac);
    shortClip.frames = kFramesBeforeARestart;
    const Clip clip = encode(shortClip);
    FlvOptions before;
    before.startMs = from;
    FlvOptions after;
    after.startMs = to;
    after.timedMetadata = {{0, {{"absolute_time", 1.4e12}}}};
    auto pieces = makeFlv(clip, before);
    const auto again = makeFlv(clip, after);
    pieces.insert(pieces.end(), again.begin() + 1, again.end()); // without its file header
    const Seen seen = play(toBytes(pieces), reading);
    EXPECT_EQ(seen.metadata, std::vector<std::string>{"value 1400000000000"});
    return seen.pictures;
}

struct Restart {
    const char* name;
    std::uint32_t fromMs;
    std::uint32_t toMs;
};

void PrintTo(const Restart& row, std::ostream* out) {
    *out << row.name;
}

class ServersRestart : public testing::TestWithParam<Restart> {};

TEST_P(ServersRestart, LeavesThePicturesEven) {
    const auto shown = shownOverARestart(FlvReading::Standard, GetParam().fromMs, GetParam().toMs);
    ASSERT_EQ(shown.size(), 2U * kFramesBeforeARestart);
    EXPECT_EQ(shown.front(), GetParam().fromMs);
    for (std::size_t i = 1; i < shown.size(); ++i) {
        // Behind the jump the pictures stand where the sound that was ahead of them leaves room.
        ASSERT_NEAR(static_cast<double>(shown[i] - shown[i - 1]), 40, i == kFramesBeforeARestart ? 40 : 0)
            << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Clocks, ServersRestart,
                         testing::Values(Restart{"Back", 90'000, 0}, Restart{"Ahead", 0, 200'000'000},
                                         Restart{"BackByHalfOfTheBits", 3'000'000'000, 0}),
                         [](const auto& test) { return test.param.name; });

TEST(BothReadings, StampsAreKeptToTheLetterInTheStrictOne) {
    const auto shown = shownOverARestart(FlvReading::Strict, 90'000, 0);
    ASSERT_EQ(shown.size(), 2U * kFramesBeforeARestart);
    for (std::size_t i = kFramesBeforeARestart; i < shown.size(); ++i) {
        EXPECT_EQ(shown[i], shown[i - 1] + 1); // until the clock is as far as it was
    }
}

/// Streams that the strict reading does not play, or not whole.
TEST(BothReadings, EnhancedStreamsPlayInTheStandardOne) {
    const std::vector<std::pair<VideoCodec, AudioCodec>> codecs{{VideoCodec::Avc, AudioCodec::Aac},
                                                                {VideoCodec::Hevc, AudioCodec::Opus},
                                                                {VideoCodec::Av1, AudioCodec::Flac},
                                                                {VideoCodec::Vp9, AudioCodec::Ac3},
                                                                {VideoCodec::Vp8, AudioCodec::Eac3}};
    for (const auto& [video, audio] : codecs) {
        ClipSpec spec;
        spec.codec = video;
        spec.audio = audio;
        spec.sampleRate = 48000;
        FlvOptions options;
        options.isEnhanced = true;
        const Seen seen = play(toBytes(makeFlv(encode(spec), options)), FlvReading::Standard);
        EXPECT_EQ(seen.pictures.size(), 50U) << mediaworker::test::fourCcOf(video);
        EXPECT_TRUE(seen.hasSound) << mediaworker::test::fourCcOf(video);
    }
}

} // namespace
} // namespace ko_player
