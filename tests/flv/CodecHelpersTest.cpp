#include "flv/AacConfig.h"
#include "flv/CodecMapping.h"
#include "flv/FillPacket.h"
#include "flv/SeiFilter.h"

#include <gmock/gmock.h>

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/avutil.h>
}

#include <climits>
#include <limits>
#include <stdexcept>

namespace ko_player {
namespace {

using testing::ElementsAre;

using Bytes = std::vector<std::uint8_t>;

TEST(CodecMapping, KnowsTheCodecsOfTheStreams) {
    EXPECT_EQ(videoCodecOf(7), AV_CODEC_ID_H264);
    EXPECT_EQ(videoCodecOf(12), AV_CODEC_ID_HEVC);
    EXPECT_EQ(audioCodecOf(2), AV_CODEC_ID_MP3);
    EXPECT_EQ(audioCodecOf(7), AV_CODEC_ID_PCM_ALAW);
    EXPECT_EQ(audioCodecOf(8), AV_CODEC_ID_PCM_MULAW);
    EXPECT_EQ(audioCodecOf(10), AV_CODEC_ID_AAC);
}

TEST(CodecMapping, KnowsNothingElse) {
    for (const std::int64_t value : {std::int64_t{0}, std::int64_t{-7}, std::int64_t{11},
                                     std::int64_t{4294967303}, std::numeric_limits<std::int64_t>::max()}) {
        EXPECT_EQ(videoCodecOf(value), AV_CODEC_ID_NONE) << value;
        EXPECT_EQ(audioCodecOf(value), AV_CODEC_ID_NONE) << value;
    }
}

TEST(CodecMapping, NamesCodecsForTheLog) {
    EXPECT_EQ(codecLogName(AV_CODEC_ID_H264), "h264");
    EXPECT_EQ(codecLogName(AV_CODEC_ID_HEVC), "h265");
    EXPECT_EQ(codecLogName(AV_CODEC_ID_MP3), "mp3");
    EXPECT_EQ(codecLogName(AV_CODEC_ID_PCM_ALAW), "pcma");
    EXPECT_EQ(codecLogName(AV_CODEC_ID_PCM_MULAW), "pcmu");
    EXPECT_EQ(codecLogName(AV_CODEC_ID_AAC), "aac");
    EXPECT_EQ(codecLogName(AV_CODEC_ID_NONE), "0");
    EXPECT_EQ(codecLogName(AV_CODEC_ID_MPEG4), "12");
}

TEST(AacConfig, DescribesAacLc) {
    struct Row {
        int rate;
        int channels;
        std::array<std::uint8_t, 2> config;
    };
    const std::vector<Row> rows{{44100, 2, {0x12, 0x10}}, {48000, 1, {0x11, 0x88}}, {96000, 2, {0x10, 0x10}},
                                {88200, 1, {0x10, 0x88}}, {8000, 1, {0x15, 0x88}},  {7350, 2, {0x16, 0x10}},
                                {22050, 2, {0x13, 0x90}}};
    for (const Row& row : rows) {
        const auto aac = makeAacConfig(row.rate, row.channels);
        ASSERT_TRUE(aac) << row.rate;
        EXPECT_EQ(aac->config, row.config) << row.rate;
        EXPECT_THAT(aac->behind, ElementsAre(0x56, 0xE5, 0x00));
    }
}

TEST(AacConfig, RefusesRatesWithoutAnIndex) {
    for (const int rate : {45000, 0, -1, 1, 44000, INT_MAX}) {
        EXPECT_FALSE(makeAacConfig(rate, 2)) << rate;
    }
}

struct SeiCase {
    const char* name;
    AVCodecID codec;
    Bytes payload;
    bool dropped;
};

void PrintTo(const SeiCase& row, std::ostream* out) {
    *out << row.name;
}

class SeiFilter : public testing::TestWithParam<SeiCase> {};

TEST_P(SeiFilter, DropsWhatHoldsNoPicture) {
    EXPECT_EQ(isSupplementalOnly(GetParam().codec, GetParam().payload), GetParam().dropped);
}

INSTANTIATE_TEST_SUITE_P(
    All, SeiFilter,
    testing::Values(
        SeiCase{"H264Empty", AV_CODEC_ID_H264, {}, true},
        SeiCase{"H264FourBytes", AV_CODEC_ID_H264, {0, 0, 0, 0}, true},
        SeiCase{"H264Slice", AV_CODEC_ID_H264, {0, 0, 0, 1, 0x41}, false},
        SeiCase{"H264Sei", AV_CODEC_ID_H264, {0, 0, 0, 2, 0x06, 1}, true},
        SeiCase{"H264SeiWithReferenceBits", AV_CODEC_ID_H264, {0, 0, 0, 2, 0x66, 1}, true},
        SeiCase{"H264SeiThenOneByte", AV_CODEC_ID_H264, {0, 0, 0, 2, 0x06, 1, 0}, false},
        SeiCase{"H264SeiThenSlice", AV_CODEC_ID_H264, {0, 0, 0, 2, 0x06, 1, 0, 0, 0, 1, 0x65}, false},
        SeiCase{"H264SeiLengthThatWouldWrap", AV_CODEC_ID_H264, {0xFF, 0xFF, 0xFF, 0xFF, 0x06, 1}, true},
        SeiCase{"H264AccessUnitDelimiter", AV_CODEC_ID_H264, {0, 0, 0, 2, 0x09, 0x10}, false},
        SeiCase{"HevcShort", AV_CODEC_ID_HEVC, {0, 0, 0, 0}, true},
        SeiCase{"HevcSlice", AV_CODEC_ID_HEVC, {0, 0, 0, 2, 0x02, 1}, false},
        SeiCase{"HevcPrefixSei", AV_CODEC_ID_HEVC, {0, 0, 0, 2, 78, 1}, true},
        SeiCase{"HevcSuffixSei", AV_CODEC_ID_HEVC, {0, 0, 0, 2, 80, 1}, true},
        SeiCase{"HevcPrefixSeiWithLayerBit", AV_CODEC_ID_HEVC, {0, 0, 0, 2, 79, 1}, true},
        SeiCase{"HevcSeiThenSlice", AV_CODEC_ID_HEVC, {0, 0, 0, 2, 78, 1, 0, 0, 0, 2, 0x02, 1}, true},
        SeiCase{"HevcByteThatIsSeiInH264", AV_CODEC_ID_HEVC, {0, 0, 0, 2, 0x06, 1}, false},
        SeiCase{"HevcParameterSets", AV_CODEC_ID_HEVC, {0, 0, 0, 2, 64, 1}, false},
        SeiCase{"NoCodecIsReadAsH264", AV_CODEC_ID_NONE, {0, 0, 0, 2, 0x06, 1}, true}),
    [](const auto& test) { return test.param.name; });

TEST(FillPacket, CopiesPayloadAndStampsItInMilliseconds) {
    ff_wrap::Packet packet;
    const Bytes payload{1, 2, 3};
    Bytes side;
    FillPacket(packet, payload.data(), 3, 4294967295LL, side, AV_PKT_FLAG_KEY);
    EXPECT_EQ(packet.size(), 3);
    EXPECT_EQ(Bytes(packet->data, packet->data + packet->size), payload);
    EXPECT_NE(packet->data, payload.data());
    EXPECT_EQ(packet->dts, 4294967295LL);
    EXPECT_EQ(packet->pts, AV_NOPTS_VALUE);
    EXPECT_EQ(packet->flags, AV_PKT_FLAG_KEY);
    EXPECT_EQ(packet->side_data_elems, 0);
}

TEST(FillPacket, MovesSideDataIntoThePacket) {
    ff_wrap::Packet packet;
    const Bytes payload{1};
    Bytes side{7, 8, 9};
    FillPacket(packet, payload.data(), 1, 0, side, 0);
    ASSERT_EQ(packet->side_data_elems, 1);
    std::size_t size = 0;
    const std::uint8_t* data = av_packet_get_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, &size);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(Bytes(data, data + size), (Bytes{7, 8, 9}));
    EXPECT_TRUE(side.empty());
    EXPECT_EQ(packet->flags & AV_PKT_FLAG_KEY, 0);
}

TEST(FillPacket, ThrowsWhereThePacketCannotBeAllocated) {
    ff_wrap::Packet packet;
    Bytes side{1};
    for (const std::uint32_t size : {UINT32_MAX, static_cast<std::uint32_t>(INT_MAX)}) {
        try {
            FillPacket(packet, nullptr, size, 0, side, 0);
            FAIL() << "nothing was thrown";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "FillPacket failed to alloc");
        }
    }
    EXPECT_EQ(side.size(), 1U);
}

} // namespace
} // namespace ko_player
