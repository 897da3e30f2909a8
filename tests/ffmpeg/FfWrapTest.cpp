#include "ffmpeg/ChannelLayout.h"
#include "ffmpeg/CodecParameters.h"
#include "ffmpeg/Decoder.h"
#include "ffmpeg/FfmpegError.h"
#include "ffmpeg/Frame.h"
#include "ffmpeg/Packet.h"

#include <gmock/gmock.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
}

#include <algorithm>
#include <bit>
#include <climits>
#include <functional>
#include <stdexcept>
#include <string>

namespace ko_player::ff_wrap {
namespace {

/// The text of the std::runtime_error that the action throws.
std::string runtimeError(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

TEST(ErrorText, IsFfmpegsWhereThereIsOne) {
    EXPECT_EQ(errorText(AVERROR_INVALIDDATA), "Invalid data found when processing input");
    EXPECT_EQ(errorText(AVERROR(EINVAL)), "Invalid argument");
}

TEST(ErrorText, NamesUnknownCodes) {
    EXPECT_EQ(errorText(-123456789), "Undef error: -123456789");
    EXPECT_EQ(errorText(INT_MIN + 1), "Undef error: -2147483647");
}

TEST(FfmpegError, KeepsTextAndCodeApart) {
    const FfmpegError error("AudioSwr: alloc failed", AVERROR(ENOMEM));
    EXPECT_STREQ(error.what(), "AudioSwr: alloc failed");
    EXPECT_EQ(error.code(), -12);
    const FfmpegError copy(error); // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_STREQ(copy.what(), error.what());
    EXPECT_EQ(copy.code(), error.code());
}

TEST(Packet, StartsEmpty) {
    const Packet packet;
    EXPECT_EQ(packet.size(), 0);
    EXPECT_EQ(packet->data, nullptr);
}

TEST(Packet, TellsItsSize) {
    Packet packet;
    ASSERT_EQ(av_new_packet(packet.get(), 42), 0);
    EXPECT_EQ(packet.size(), 42);
}

TEST(Packet, RefusesToAccountForANegativeSize) {
    Packet packet;
    packet->size = -1;
    EXPECT_EQ(runtimeError([&] { (void)packet.size(); }), "ff_wrap::Packet size neg");
    packet->size = 0;
}

TEST(Packet, TellsWhatItCostsInMemory) {
    Packet packet;
    EXPECT_EQ(packet.heldBytes(), Packet::kOverheadBytes);
    ASSERT_EQ(av_new_packet(packet.get(), 100), 0);
    ASSERT_NE(av_packet_new_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, 60'000), nullptr);
    EXPECT_EQ(packet.heldBytes(), Packet::kOverheadBytes + 60'100);
    EXPECT_EQ(packet.size(), 100);
}

TEST(Frame, TellsWhatItsSamplesCost) {
    Frame frame;
    EXPECT_EQ(frame.heldBytes(), 0U);
    frame->nb_samples = 1'000'000;
    frame->format = AV_SAMPLE_FMT_FLTP;
    av_channel_layout_default(&frame->ch_layout, 10); // more than the frame itself has places for
    ASSERT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    EXPECT_GE(frame.heldBytes(), 40'000'000U);
    EXPECT_LT(frame.heldBytes(), 40'100'000U);
}

TEST(Frame, DropsWhatTheStreamHasAttached) {
    Frame frame;
    for (const auto type : {AV_FRAME_DATA_A53_CC, AV_FRAME_DATA_SEI_UNREGISTERED,
                            AV_FRAME_DATA_SEI_UNREGISTERED, AV_FRAME_DATA_DISPLAYMATRIX}) {
        ASSERT_NE(av_frame_new_side_data(frame.get(), type, 1000), nullptr);
    }
    frame.dropSideData();
    EXPECT_EQ(frame->nb_side_data, 0);
}

TEST(Frame, OwnsAnEmptyFrame) {
    Frame frame;
    ASSERT_NE(frame.get(), nullptr);
    EXPECT_EQ(frame->data[0], nullptr);
    EXPECT_EQ(frame->width, 0);
}

TEST(CodecParameters, StartEmpty) {
    const auto params = makeCodecParameters();
    EXPECT_EQ(params->codec_id, AV_CODEC_ID_NONE);
    EXPECT_EQ(params->extradata, nullptr);
}

TEST(AllocExtradata, ZeroesThePaddingBehindIt) {
    const auto params = makeCodecParameters();
    allocExtradata(*params, 5);
    ASSERT_EQ(params->extradata_size, 5);
    std::fill_n(params->extradata, 5, std::uint8_t{0xFF});
    const std::uint8_t* padding = params->extradata + 5;
    EXPECT_TRUE(
        std::all_of(padding, padding + AV_INPUT_BUFFER_PADDING_SIZE, [](auto byte) { return byte == 0; }));
    EXPECT_EQ(AV_INPUT_BUFFER_PADDING_SIZE, 64);
}

TEST(AllocExtradata, ReplacesWhatWasThere) {
    const auto params = makeCodecParameters();
    allocExtradata(*params, 100);
    allocExtradata(*params, 2);
    EXPECT_EQ(params->extradata_size, 2);
    allocExtradata(*params, 0);
    EXPECT_EQ(params->extradata_size, 0);
    EXPECT_NE(params->extradata, nullptr);
}

TEST(AllocExtradata, LeavesNoneBehindWhereItFails) {
    for (const std::size_t size : {SIZE_MAX, static_cast<std::size_t>(INT_MAX), std::size_t{INT_MAX - 63}}) {
        const auto params = makeCodecParameters();
        allocExtradata(*params, 10);
        EXPECT_EQ(runtimeError([&] { allocExtradata(*params, size); }),
                  "allocExtradata failed to alloc side");
        EXPECT_EQ(params->extradata, nullptr);
        EXPECT_EQ(params->extradata_size, 0);
    }
}

TEST(Decoder, OpensForParameters) {
    const auto params = makeCodecParameters();
    params->codec_type = AVMEDIA_TYPE_AUDIO;
    params->codec_id = AV_CODEC_ID_PCM_ALAW;
    params->sample_rate = 8000;
    params->ch_layout = layoutFromMask(defaultLayoutMask(1), 1);
    const Decoder decoder(params.get(), {1, 1000});
    ASSERT_NE(decoder.context(), nullptr);
    EXPECT_NE(avcodec_is_open(decoder.context()), 0);
    EXPECT_EQ(decoder.context()->pkt_timebase.num, 1);
    EXPECT_EQ(decoder.context()->pkt_timebase.den, 1000);
    EXPECT_EQ(decoder.context()->sample_rate, 8000);
}

TEST(Decoder, RefusesParametersThatNoContextTakes) {
    const auto params = makeCodecParameters();
    params->codec_type = AVMEDIA_TYPE_VIDEO;
    params->codec_id = AV_CODEC_ID_H264;
    // A size that the copy into the context cannot allocate.
    std::uint8_t byte = 0;
    params->extradata = &byte;
    params->extradata_size = INT_MAX;
    av_max_alloc(1 << 20);
    const std::string text = runtimeError([&] { const Decoder decoder(params.get(), {1, 1000}); });
    av_max_alloc(INT_MAX);
    params->extradata = nullptr;
    params->extradata_size = 0;
    EXPECT_EQ(text, "Decoder.ctor: params to context failed: Cannot allocate memory");
}

TEST(Decoder, RefusesAnUnknownCodec) {
    const auto params = makeCodecParameters();
    params->codec_type = AVMEDIA_TYPE_VIDEO;
    params->codec_id = AV_CODEC_ID_NONE;
    EXPECT_THAT(runtimeError([&] {
                    const Decoder decoder(params.get(), {1, 1000});
                }),
                testing::StartsWith("Decoder.ctor: avcodec_open failed: "));
}

TEST(Decoder, RefusesParametersThatItsCodecRefuses) {
    const auto params = makeCodecParameters();
    params->codec_type = AVMEDIA_TYPE_AUDIO;
    params->codec_id = AV_CODEC_ID_PCM_ALAW; // needs to be told the channels
    EXPECT_EQ(runtimeError([&] {
                  const Decoder decoder(params.get(), {1, 1000});
              }),
              "Decoder.ctor: avcodec_open failed: Invalid argument");
}

TEST(ChannelLayout, NamesTheUsualMasks) {
    EXPECT_EQ(defaultLayoutMask(1), std::uint64_t{AV_CH_LAYOUT_MONO});
    EXPECT_EQ(defaultLayoutMask(2), std::uint64_t{AV_CH_LAYOUT_STEREO});
    EXPECT_EQ(defaultLayoutMask(6), std::uint64_t{AV_CH_LAYOUT_5POINT1_BACK});
    for (const int none : {0, -1, INT_MIN, 63, 1000}) {
        EXPECT_EQ(defaultLayoutMask(none), 0U) << none;
    }
}

TEST(ChannelLayout, CountsTheChannelsOfAMask) {
    EXPECT_EQ(channelsOfMask(0), 0);
    EXPECT_EQ(channelsOfMask(AV_CH_LAYOUT_MONO), 1);
    EXPECT_EQ(channelsOfMask(AV_CH_LAYOUT_7POINT1), 8);
    EXPECT_EQ(channelsOfMask(UINT64_MAX), 64);
}

TEST(ChannelLayout, ReturnsFromALayoutToItsMask) {
    for (const std::uint64_t mask : {std::uint64_t{AV_CH_LAYOUT_MONO}, std::uint64_t{AV_CH_LAYOUT_2_1},
                                     std::uint64_t{AV_CH_LAYOUT_5POINT1}}) {
        const AVChannelLayout layout = layoutFromMask(mask, channelsOfMask(mask));
        EXPECT_EQ(layout.nb_channels, std::popcount(mask));
        EXPECT_EQ(maskOf(layout), mask);
    }
}

TEST(ChannelLayout, FallsBackToTheDefaultForTheChannels) {
    EXPECT_EQ(maskOf(layoutFromMask(0, 2)), std::uint64_t{AV_CH_LAYOUT_STEREO});
    EXPECT_EQ(maskOf(layoutFromMask(AV_CH_LAYOUT_MONO, 2)), std::uint64_t{AV_CH_LAYOUT_STEREO});
    const AVChannelLayout many = layoutFromMask(0, 50);
    EXPECT_EQ(many.nb_channels, 50);
    EXPECT_EQ(maskOf(many), 0U);
    EXPECT_EQ(layoutFromMask(0, 0).nb_channels, 0);
    EXPECT_EQ(layoutFromMask(AV_CH_LAYOUT_MONO, -1).nb_channels, 0);
}

} // namespace
} // namespace ko_player::ff_wrap
