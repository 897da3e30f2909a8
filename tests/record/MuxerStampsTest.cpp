#include "record/Muxer.h"

#include "Mp4File.h"
#include "ffmpeg/CodecParameters.h"
#include "flv/FillPacket.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavcodec/packet.h>
#include <libavutil/channel_layout.h>
}

namespace ko_player {
namespace {

using mediaworker::test::readMp4;
using mediaworker::test::TemporaryFolder;

constexpr AVRational kMilliseconds{1, 1000};
constexpr std::int64_t kDays = 20LL * 86'400'000;

struct Stamp {
    std::int64_t dtsMs;
    std::int64_t ptsMs;
    friend bool operator==(const Stamp&, const Stamp&) = default;
};

void PrintTo(const Stamp& stamp, std::ostream* out) {
    *out << stamp.dtsMs << '/' << stamp.ptsMs;
}

std::shared_ptr<ff_wrap::Packet> packet(const Stamp& stamp) {
    auto result = std::make_shared<ff_wrap::Packet>();
    const std::vector<std::uint8_t> bytes(6, 0x41);
    std::vector<std::uint8_t> noSideData;
    FillPacket(*result, bytes.data(), static_cast<std::uint32_t>(bytes.size()), stamp.dtsMs, noSideData,
               AV_PKT_FLAG_KEY);
    (*result)->pts = stamp.ptsMs;
    return result;
}

struct Case {
    const char* name;
    std::int64_t origin;
    std::vector<Stamp> sent;
    std::vector<Stamp> expected; ///< milliseconds from the first decode time on
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

class KeptStamps : public testing::TestWithParam<Case> {};

TEST_P(KeptStamps, OfPictures) {
    auto parameters = ff_wrap::makeCodecParameters();
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters->codec_id = AV_CODEC_ID_H264;
    parameters->width = 320;
    parameters->height = 180;
    const std::vector<std::uint8_t> config = {1,    0x42, 0,    0x1E, 0xFF, 0xE1, 0,    4,   0x67,
                                              0x42, 0,    0x1E, 1,    0,    2,    0x68, 0xCE};
    ff_wrap::allocExtradata(*parameters, config.size());
    std::copy(config.begin(), config.end(), parameters->extradata);

    const TemporaryFolder folder;
    const std::string path = (folder / "out.mp4").string();
    Muxer muxer(path, Muxer::Form::Faithful);
    muxer.addStream({parameters.get(), kMilliseconds, kMilliseconds, 0, {true, GetParam().origin, 0}}, 0);
    muxer.openFile();
    for (const Stamp& stamp : GetParam().sent) {
        ASSERT_TRUE(muxer.writePacket(packet(stamp), 0, nullptr));
    }
    muxer.close();

    const auto stream = readMp4(path).at(0);
    ASSERT_EQ(stream.timeBase.den, 16'000);
    std::vector<Stamp> read;
    for (const auto& picture : stream.packets) {
        const std::int64_t first = stream.packets.front().dts;
        read.push_back({(picture.dts - first) / 16, (picture.pts - first) / 16});
    }
    EXPECT_EQ(read, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    All, KeptStamps,
    testing::Values(
        Case{"Plain", 0, {{0, 0}, {33, 33}, {67, 67}}, {{0, 0}, {33, 33}, {67, 67}}},
        Case{"Reordered",
             0,
             {{0, 80}, {40, 200}, {80, 120}, {120, 160}},
             {{0, 80}, {40, 200}, {80, 120}, {120, 160}}},
        Case{"FromAnOriginOfDays",
             kDays,
             {{kDays, kDays + 80}, {kDays + 40, kDays + 120}},
             {{0, 80}, {40, 120}}},
        Case{"BeforeTheOrigin", 1000, {{900, 900}, {1000, 1000}}, {{0, 0}, {100, 100}}},
        // All are shown before they are decoded: then they are decoded when they are shown.
        Case{"ShownBeforeDecoded", 0, {{80, 0}, {120, 40}, {160, 80}}, {{0, 0}, {40, 40}, {80, 80}}},
        // No time was left between decoding and showing; from the first picture that lacks it on there is.
        Case{"ReorderedWithoutDelay",
             0,
             {{0, 0}, {40, 120}, {80, 40}, {120, 80}, {160, 240}, {200, 160}, {240, 200}},
             {{0, 0}, {40, 120}, {40, 40}, {80, 80}, {120, 240}, {160, 160}, {200, 200}}}),
    [](const auto& instance) { return instance.param.name; });

struct SoundCase {
    const char* name;
    int sampleRate;
    int samplesPerPacket;
};

void PrintTo(const SoundCase& row, std::ostream* out) {
    *out << row.name;
}

class ExactStamps : public testing::TestWithParam<SoundCase> {};

TEST_P(ExactStamps, OfSoundThatCameInMilliseconds) {
    const auto [name, rate, samples] = GetParam();
    auto parameters = ff_wrap::makeCodecParameters();
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->codec_id = AV_CODEC_ID_MP3;
    parameters->sample_rate = rate;
    av_channel_layout_default(&parameters->ch_layout, 1);

    const TemporaryFolder folder;
    const std::string path = (folder / "out.mp4").string();
    Muxer muxer(path, Muxer::Form::Faithful);
    muxer.addStream({parameters.get(), {1, rate}, kMilliseconds, 0, {true, 5000, samples}}, 0);
    muxer.openFile();
    constexpr std::int64_t kPackets = 1000;
    for (std::int64_t i = 0; i < kPackets; ++i) {
        const std::int64_t ms = 5000 + (i * samples * 1000 + rate / 2) / rate;
        ASSERT_TRUE(muxer.writePacket(packet({ms, ms}), 0, nullptr));
    }
    muxer.close();
    const auto stamps = readMp4(path).at(0).stamps();
    for (std::int64_t i = 0; i < kPackets; ++i) {
        ASSERT_EQ(stamps.at(static_cast<std::size_t>(i)), i * samples) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(All, ExactStamps,
                         testing::Values(SoundCase{"At44100", 44100, 1152}, SoundCase{"At48000", 48000, 1152},
                                         SoundCase{"At22050", 22050, 576}),
                         [](const auto& instance) { return instance.param.name; });

TEST(MuxerForm, DecidesWhatAFileHolds) {
    const TemporaryFolder folder;
    const std::string path = (folder / "out.mp4").string();
    const Muxer muxer(path, Muxer::Form::Faithful);
    for (const AVCodecID codec :
         {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_AV1, AV_CODEC_ID_VP9, AV_CODEC_ID_AAC,
          AV_CODEC_ID_MP3, AV_CODEC_ID_OPUS, AV_CODEC_ID_FLAC, AV_CODEC_ID_AC3, AV_CODEC_ID_EAC3}) {
        EXPECT_TRUE(muxer.holds(codec)) << codec;
    }
    for (const AVCodecID codec : {AV_CODEC_ID_VP8, AV_CODEC_ID_PCM_ALAW, AV_CODEC_ID_PCM_MULAW}) {
        EXPECT_FALSE(muxer.holds(codec)) << codec;
    }
}

} // namespace
} // namespace ko_player
