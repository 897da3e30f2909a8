#include "support/media/FlvStream.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

namespace mediaworker::test {
namespace {

/// What the ffprobe program reports of the stream.
std::string probe(const std::vector<std::uint8_t>& flv, const std::string& entries) {
    const TemporaryFolder folder;
    writeFile(folder / "a.flv", {reinterpret_cast<const char*>(flv.data()), flv.size()});
    return runCommand({"ffprobe", "-v", "error", "-show_entries", entries, "-of", "compact=p=0",
                       (folder / "a.flv").string()});
}

int lines(const std::string& text) {
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

ClipSpec soundSpec(AudioCodec codec, int sampleRate, int channels) {
    ClipSpec spec;
    spec.audio = codec;
    spec.sampleRate = sampleRate;
    spec.channels = channels;
    return spec;
}

struct Case {
    const char* name;
    ClipSpec spec;
    const char* audio;
    std::uint8_t headerByte;
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

class FlvOf : public testing::TestWithParam<Case> {};

TEST_P(FlvOf, IsReadByAnIndependentDemultiplexer) {
    const Clip clip = encode(GetParam().spec);
    EXPECT_EQ(audioHeaderByteOf(clip.spec), GetParam().headerByte);
    const auto flv = toBytes(makeFlv(clip));
    const std::string streams = probe(flv, "stream=codec_name,width,height,sample_rate,channels");
    EXPECT_NE(streams.find("codec_name=h264|width=320|height=180"), std::string::npos) << streams;
    EXPECT_NE(streams.find(GetParam().audio), std::string::npos) << streams;
    // Only the pictures' lines count: those of the sound have their own entry.
    const std::string packets = probe(flv, "packet=codec_type");
    EXPECT_GE(lines(packets), 50 + static_cast<int>(clip.audio.size()) - 4);
}

INSTANTIATE_TEST_SUITE_P(
    Sounds, FlvOf,
    testing::Values(
        Case{"Aac", soundSpec(AudioCodec::Aac, 44100, 2), "aac|sample_rate=44100|channels=2", 175},
        Case{"AacMono", soundSpec(AudioCodec::Aac, 48000, 1), "aac|sample_rate=48000|channels=1", 174},
        Case{"Mp3", soundSpec(AudioCodec::Mp3, 44100, 2), "mp3|sample_rate=44100|channels=2", 47},
        Case{"ALaw", soundSpec(AudioCodec::ALaw, 8000, 1), "pcm_alaw|sample_rate=8000", 0x72},
        Case{"MuLaw", soundSpec(AudioCodec::MuLaw, 8000, 1), "pcm_mulaw|sample_rate=8000", 0x82}),
    [](const auto& instance) { return instance.param.name; });

std::int64_t timestampOf(const TimedBytes& piece) {
    const auto& b = piece.bytes;
    return std::int64_t{b.at(7)} << 24 | std::int64_t{b.at(4)} << 16 | std::int64_t{b.at(5)} << 8 | b.at(6);
}

TEST(FlvStream, BeginsLikeACameraServer) {
    const Clip clip = encode(soundSpec(AudioCodec::Aac, 44100, 2));
    const auto pieces = makeFlv(clip);
    ASSERT_GT(pieces.size(), 5U);
    EXPECT_EQ(pieces[0].kind, PieceKind::Header);
    EXPECT_EQ(pieces[1].kind, PieceKind::Metadata);
    EXPECT_EQ(pieces[2].kind, PieceKind::Config);
    EXPECT_EQ(pieces[3].kind, PieceKind::Config);
    EXPECT_EQ(pieces[4].kind, PieceKind::Video);
    EXPECT_TRUE(pieces[4].isKey);
    EXPECT_TRUE(std::is_sorted(pieces.begin(), pieces.end(),
                               [](const auto& a, const auto& b) { return a.ms < b.ms; }));
}

TEST(FlvStream, ShiftsTimeStampsButNotTheSchedule) {
    const Clip clip = encode(ClipSpec{});
    FlvOptions options;
    options.startMs = 0xFFFFFFFFU - 39;
    const auto pieces = makeFlv(clip, options);
    const TimedBytes& first = pieces.at(3);
    EXPECT_EQ(first.ms, 0);
    EXPECT_EQ(timestampOf(first), 0xFFFFFFFFLL - 39);
    EXPECT_EQ(timestampOf(pieces.at(4)), 0);
}

TEST(FlvStream, RepeatsWithTimeGoingOnAndOneConfiguration) {
    const Clip clip = encode(ClipSpec{});
    FlvOptions options;
    options.repeats = 3;
    const auto pieces = makeFlv(clip, options);
    const auto count = [&](PieceKind kind) {
        return std::count_if(pieces.begin(), pieces.end(), [&](const auto& p) { return p.kind == kind; });
    };
    EXPECT_EQ(count(PieceKind::Video), 150);
    EXPECT_EQ(count(PieceKind::Config), 1);
    EXPECT_EQ(pieces.back().ms, 149 * 40);
}

TEST(FlvStream, AnnouncesEveryClipOfAChain) {
    ClipSpec large;
    large.widthPx = 640;
    large.heightPx = 360;
    const Clip a = encode(ClipSpec{});
    const Clip b = encode(large);
    FlvOptions options;
    options.metadataForEveryClip = true;
    const auto pieces = makeFlv({&a, &b}, options);
    ASSERT_EQ(pieces.size(), 1U + 2 * (1 + 1 + 50));
    EXPECT_EQ(pieces[53].kind, PieceKind::Metadata);
    EXPECT_EQ(pieces[54].kind, PieceKind::Config);
    EXPECT_EQ(pieces[55].ms, 2000);
}

TEST(FlvStream, PutsTimedMetadataBeforeTheFrameOfItsTime) {
    const Clip clip = encode(ClipSpec{});
    FlvOptions options;
    options.timedMetadata = {{100, {{"absolute_time", 1.4e12}}}};
    const auto pieces = makeFlv(clip, options);
    EXPECT_EQ(pieces.at(6).kind, PieceKind::Metadata);
    EXPECT_EQ(pieces.at(6).ms, 120);
    EXPECT_EQ(pieces.at(7).ms, 120);
    EXPECT_EQ(pieces.at(7).kind, PieceKind::Video);
}

bool holds(const TimedBytes& piece, std::string_view text) {
    return std::search(piece.bytes.begin(), piece.bytes.end(), text.begin(), text.end()) != piece.bytes.end();
}

TEST(FlvStream, ReplacesAddsAndLeavesOutMetadata) {
    const Clip clip = encode(ClipSpec{});
    FlvOptions options;
    options.metadata = {{"width", 8000}, {"extra", true}};
    options.withoutMetadata = {"videocodecid"};
    const TimedBytes metadata = makeFlv(clip, options).at(1);
    EXPECT_TRUE(holds(metadata, "extra"));
    EXPECT_TRUE(holds(metadata, "width"));
    EXPECT_FALSE(holds(metadata, "videocodecid"));

    options.hasMetadata = false;
    options.hasSequenceHeaders = false;
    EXPECT_EQ(makeFlv(clip, options).at(1).kind, PieceKind::Video);
}

} // namespace
} // namespace mediaworker::test
