#include "ffmpeg/StreamProbe.h"

#include "ffmpeg/CodecParameters.h"
#include "ffmpeg/Packet.h"
#include "support/LogCapture.h"
#include "support/media/AacSbr.h"
#include "support/media/Clip.h"

#include <gmock/gmock.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <cstring>

namespace ko_player::ff_wrap {
namespace {

using mediaworker::test::AudioCodec;
using mediaworker::test::Clip;
using mediaworker::test::ClipSpec;
using mediaworker::test::VideoCodec;
using Bytes = std::vector<std::uint8_t>;

CodecParametersPtr parametersOf(AVMediaType type, AVCodecID codec, const Bytes& config) {
    auto parameters = makeCodecParameters();
    parameters->codec_type = type;
    parameters->codec_id = codec;
    if (!config.empty()) {
        allocExtradata(*parameters, config.size());
        std::copy(config.begin(), config.end(), parameters->extradata);
    }
    return parameters;
}

Packet packetOf(const Bytes& bytes) {
    Packet packet;
    if (av_new_packet(packet.get(), static_cast<int>(bytes.size())) < 0) {
        throw std::bad_alloc();
    }
    std::copy(bytes.begin(), bytes.end(), packet->data);
    return packet;
}

struct SoundRow {
    const char* name;
    AudioCodec audio;
    AVCodecID codec;
    int sampleRate;
    int channels;
    int frameSize;
};

void PrintTo(const SoundRow& row, std::ostream* out) {
    *out << row.name;
}

class SoundProbe : public testing::TestWithParam<SoundRow> {};

TEST_P(SoundProbe, TellsWhatTheFirstFrameShows) {
    const SoundRow& row = GetParam();
    ClipSpec spec;
    spec.audio = row.audio;
    spec.sampleRate = row.sampleRate;
    spec.channels = row.channels;
    const Clip clip = mediaworker::test::encode(spec);
    const auto parameters = parametersOf(AVMEDIA_TYPE_AUDIO, row.codec, clip.audioConfig);
    const Packet first = packetOf(clip.audio.at(0).bytes);
    const ProbeResult result = completeParameters(*parameters, *first.get());
    EXPECT_TRUE(result) << result.failure;
    EXPECT_EQ(parameters->sample_rate, row.sampleRate);
    EXPECT_EQ(parameters->ch_layout.nb_channels, row.channels);
    EXPECT_EQ(parameters->frame_size, row.frameSize);
    EXPECT_GE(parameters->format, 0);
    EXPECT_EQ(parameters->codec_id, row.codec);
    EXPECT_EQ(Bytes(parameters->extradata, parameters->extradata + parameters->extradata_size),
              clip.audioConfig);
}

INSTANTIATE_TEST_SUITE_P(
    All, SoundProbe,
    testing::Values(SoundRow{"Aac", AudioCodec::Aac, AV_CODEC_ID_AAC, 44100, 2, 1024},
                    SoundRow{"AacMono", AudioCodec::Aac, AV_CODEC_ID_AAC, 16000, 1, 1024},
                    SoundRow{"Mp3", AudioCodec::Mp3, AV_CODEC_ID_MP3, 44100, 1, 1152},
                    SoundRow{"Mp3OfHalfTheRate", AudioCodec::Mp3, AV_CODEC_ID_MP3, 22050, 2, 576},
                    SoundRow{"Opus", AudioCodec::Opus, AV_CODEC_ID_OPUS, 48000, 2, 960},
                    SoundRow{"Flac", AudioCodec::Flac, AV_CODEC_ID_FLAC, 44100, 2, 4608},
                    SoundRow{"Ac3", AudioCodec::Ac3, AV_CODEC_ID_AC3, 48000, 2, 1536},
                    SoundRow{"Eac3", AudioCodec::Eac3, AV_CODEC_ID_EAC3, 48000, 2, 1536}),
    [](const auto& test) { return test.param.name; });

TEST(SoundProbe, BelievesTheFrameAndNotTheConfiguration) {
    // AudioSpecificConfig with explicit SBR: AAC LC at 22050 Hz, of which the decoder makes 44100 Hz.
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    spec.sampleRate = 22050;
    spec.channels = 1;
    const Clip clip = mediaworker::test::encode(spec);
    // audioObjectType 5, samplingFrequencyIndex 7, channelConfiguration 1, extension index 4, audioObjectType
    // 2
    const auto parameters = parametersOf(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_AAC, {0x2B, 0x8A, 0x08, 0x00});
    EXPECT_TRUE(completeParameters(*parameters, *packetOf(clip.audio.at(0).bytes).get()));
    EXPECT_EQ(parameters->sample_rate, 44100);
    EXPECT_EQ(parameters->frame_size, 2048);
}

TEST(SoundProbe, FindsTheRateThatOnlyTheFrameTells) {
    ClipSpec spec;
    spec.audio = AudioCodec::Aac;
    spec.sampleRate = 22050;
    spec.channels = 2;
    const Clip clip = mediaworker::test::encode(spec);
    // audioObjectType 2, samplingFrequencyIndex 7, channelConfiguration 2; whether there is SBR stays open
    const Bytes aacLcAt22050 = {0x13, 0x90};
    for (const bool isDoubled : {false, true}) {
        const Bytes& plain = clip.audio.at(0).bytes;
        const Bytes frame = isDoubled ? mediaworker::test::withImplicitSbr(plain) : plain;
        const auto parameters = parametersOf(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_AAC, aacLcAt22050);
        EXPECT_TRUE(completeParameters(*parameters, *packetOf(frame).get()));
        EXPECT_EQ(parameters->sample_rate, isDoubled ? 44100 : 22050);
        EXPECT_EQ(parameters->frame_size, isDoubled ? 2048 : 1024);
        EXPECT_EQ(parameters->ch_layout.nb_channels, 2);
    }
}

TEST(SoundProbe, KeepsTheRateOfG711) {
    const auto parameters = parametersOf(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_ALAW, {});
    parameters->sample_rate = 16000;
    av_channel_layout_default(&parameters->ch_layout, 1);
    EXPECT_TRUE(completeParameters(*parameters, *packetOf(Bytes(320, 0xD5)).get()));
    EXPECT_EQ(parameters->sample_rate, 16000);
    EXPECT_EQ(parameters->frame_size, 0) << "any size will do";
    EXPECT_EQ(parameters->format, AV_SAMPLE_FMT_S16);
}

TEST(PictureProbe, TellsWhatTheFirstKeyFrameShows) {
    struct Row {
        VideoCodec video;
        AVCodecID codec;
    };
    for (const Row& row : {Row{VideoCodec::Avc, AV_CODEC_ID_H264}, Row{VideoCodec::Hevc, AV_CODEC_ID_HEVC},
                           Row{VideoCodec::Av1, AV_CODEC_ID_AV1}, Row{VideoCodec::Vp9, AV_CODEC_ID_VP9},
                           Row{VideoCodec::Vp8, AV_CODEC_ID_VP8}}) {
        ClipSpec spec;
        spec.codec = row.video;
        spec.bFrames = row.video == VideoCodec::Avc || row.video == VideoCodec::Hevc ? 2 : 0;
        const Clip clip = mediaworker::test::encode(spec);
        const auto parameters = parametersOf(AVMEDIA_TYPE_VIDEO, row.codec, clip.videoConfig);
        parameters->width = 16; // as wrong metadata have it
        parameters->height = 16;
        const ProbeResult result = completeParameters(*parameters, *packetOf(clip.video.at(0).bytes).get());
        EXPECT_TRUE(result) << row.codec << result.failure;
        EXPECT_EQ(parameters->width, spec.widthPx) << row.codec;
        EXPECT_EQ(parameters->height, spec.heightPx) << row.codec;
        EXPECT_EQ(parameters->format, AV_PIX_FMT_YUV420P) << row.codec;
        EXPECT_EQ(parameters->extradata_size, static_cast<int>(clip.videoConfig.size())) << row.codec;
    }
}

TEST(Probe, SaysWhyItFailsAndChangesNothing) {
    const mediaworker::test::LogCapture log;
    const auto broken = parametersOf(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_AAC, {0x12, 0x10});
    const ProbeResult result = completeParameters(*broken, *packetOf(Bytes(50, 0xFF)).get());
    EXPECT_FALSE(result);
    EXPECT_THAT(result.failure, testing::StartsWith("nothing can be decoded: "));
    EXPECT_EQ(broken->sample_rate, 0);

    const auto unknown = parametersOf(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PROBE, {});
    EXPECT_EQ(completeParameters(*unknown, *packetOf(Bytes(50, 0)).get()).failure, "no decoder");
    EXPECT_FALSE(hasDecoder(AV_CODEC_ID_PROBE));
    EXPECT_TRUE(hasDecoder(AV_CODEC_ID_H264));

    const auto refused = parametersOf(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_PCM_ALAW, {});
    EXPECT_THAT(completeParameters(*refused, *packetOf(Bytes(50, 0)).get()).failure,
                testing::StartsWith("Decoder.ctor: "));
}

} // namespace
} // namespace ko_player::ff_wrap
