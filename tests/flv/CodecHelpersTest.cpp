#include "flv/AacConfig.h"
#include "flv/CodecConfig.h"
#include "flv/CodecMapping.h"
#include "flv/FillPacket.h"
#include "flv/SeiFilter.h"
#include "flv/StandardTags.h"
#include "flv/WrappingTime.h"

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

TEST(AacConfig, GivesASpelledOutRateItsIndex) {
    struct Row {
        const char* name;
        Bytes config;
        std::uint32_t rate; ///< 0 for none
        Bytes expected;
    };
    const std::vector<Row> rows{
        {"index", {0x12, 0x10}, 0, {}},
        {"nothing", {}, 0, {}},
        // audioObjectType 2, index 15, 44100 in 24 bits, channelConfiguration 2, three flags
        {"44100", {0x17, 0x80, 0x56, 0x22, 0x10}, 44100, {0x12, 0x10}},
        {"44056 is near", {0x17, 0x80, 0x56, 0x0C, 0x10}, 44056, {0x12, 0x10}},
        {"40000 is not", {0x17, 0x80, 0x4E, 0x20, 0x10}, 40000, {}},
        {"3", {0x17, 0x80, 0x00, 0x01, 0x90}, 3, {}},
        // audioObjectType 5, index 15, 24000, channelConfiguration 1, extension index 3, audioObjectType 2
        {"with SBR", {0x2F, 0x80, 0x2E, 0xE0, 0x09, 0x88, 0x00}, 24000, {0x2B, 0x09, 0x88, 0x00}},
        {"cut off", {0x17}, 0, {}},
        {"cut off in the rate", {0x17, 0x80, 0x56}, 44032, {0x12, 0x00}}};
    for (const Row& row : rows) {
        const auto found = spelledOutRate(row.config);
        ASSERT_EQ(found.has_value(), row.rate != 0) << row.name;
        if (found) {
            EXPECT_EQ(found->sampleRate, row.rate) << row.name;
            EXPECT_EQ(found->config, row.expected) << row.name << testing::PrintToString(found->config);
        }
    }
    EXPECT_FALSE(spelledOutRate(Bytes(65, 0xFF)));
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

TEST(CodecMapping, NamesTheCodecsOfTagsForPeople) {
    struct Row {
        std::uint32_t id;
        AVCodecID codec;
        const char* name;
    };
    using flv::fourCc;
    const std::vector<Row> videos{{7, AV_CODEC_ID_H264, "H.264"},
                                  {12, AV_CODEC_ID_HEVC, "H.265"},
                                  {13, AV_CODEC_ID_AV1, "AV1"},
                                  {fourCc("hvc1"), AV_CODEC_ID_HEVC, "H.265"},
                                  {fourCc("vp08"), AV_CODEC_ID_VP8, "VP8"},
                                  {fourCc("vp09"), AV_CODEC_ID_VP9, "VP9"},
                                  {fourCc("vvc1"), AV_CODEC_ID_NONE, "H.266"},
                                  {2, AV_CODEC_ID_NONE, "H.263"},
                                  {4, AV_CODEC_ID_NONE, "VP6"},
                                  {9, AV_CODEC_ID_NONE, "codec 9"},
                                  {0x41004200, AV_CODEC_ID_NONE, "A?B?"}};
    for (const Row& row : videos) {
        EXPECT_EQ(videoCodecNamed(row.id).codec, row.codec) << row.name;
        EXPECT_EQ(videoCodecNamed(row.id).name, row.name);
    }
    const std::vector<Row> sounds{{2, AV_CODEC_ID_MP3, "MP3"},
                                  {14, AV_CODEC_ID_MP3, "MP3"},
                                  {7, AV_CODEC_ID_PCM_ALAW, "G.711 A-law"},
                                  {8, AV_CODEC_ID_PCM_MULAW, "G.711 mu-law"},
                                  {10, AV_CODEC_ID_AAC, "AAC"},
                                  {11, AV_CODEC_ID_NONE, "Speex"},
                                  {6, AV_CODEC_ID_NONE, "Nellymoser"},
                                  {1, AV_CODEC_ID_NONE, "ADPCM"},
                                  {fourCc("Opus"), AV_CODEC_ID_OPUS, "Opus"},
                                  {fourCc("fLaC"), AV_CODEC_ID_FLAC, "FLAC"},
                                  {fourCc("ec-3"), AV_CODEC_ID_EAC3, "E-AC-3"}};
    for (const Row& row : sounds) {
        EXPECT_EQ(audioCodecNamed(row.id).codec, row.codec) << row.name;
        EXPECT_EQ(audioCodecNamed(row.id).name, row.name);
    }
    EXPECT_EQ(codecName(AV_CODEC_ID_OPUS), "Opus");
    EXPECT_EQ(codecName(AV_CODEC_ID_MPEG4), "codec 12");
}

TEST(CodecMapping, UnderstandsTheNumbersOfMetadata) {
    const std::vector<std::pair<std::int64_t, std::uint32_t>> rows{{7, 7},
                                                                   {10, 10},
                                                                   {15, 15},
                                                                   {16, 1},
                                                                   {175, 10},
                                                                   {0x7E, 7},
                                                                   {0x2F, 2},
                                                                   {256, 256},
                                                                   {1752589105, 1752589105},
                                                                   {-1, 0},
                                                                   {std::int64_t{1} << 40, 0}};
    for (const auto& [value, id] : rows) {
        EXPECT_EQ(codecIdOfMetadata(value), id) << value;
    }
}

const Bytes kAvcC{1, 0x64, 0, 0x28, 0xFF, 0xE1, 0, 0};

Bytes hvcC() {
    Bytes config(23, 0);
    config[0] = 1;
    for (const auto& [at, bits] : std::vector<std::pair<std::size_t, std::uint8_t>>{
             {13, 0xF0}, {15, 0xFC}, {16, 0xFD}, {17, 0xF8}, {18, 0xF8}, {21, 0x0F}}) {
        config[at] = bits;
    }
    return config;
}

TEST(CodecConfig, IsWhatFfmpegTakesAsExtradata) {
    const Bytes info(34, 7);
    Bytes block{0x80, 0, 0, 34};
    block.insert(block.end(), info.begin(), info.end());
    Bytes marked{'f', 'L', 'a', 'C'};
    marked.insert(marked.end(), block.begin(), block.end());
    EXPECT_EQ(extradataOf(AV_CODEC_ID_FLAC, info), info);
    EXPECT_EQ(extradataOf(AV_CODEC_ID_FLAC, block), info);
    EXPECT_EQ(extradataOf(AV_CODEC_ID_FLAC, marked), info);
    EXPECT_EQ(extradataOf(AV_CODEC_ID_FLAC, Bytes(33, 7)), Bytes{});
    EXPECT_EQ(extradataOf(AV_CODEC_ID_AAC, Bytes{0x12, 0x10}), (Bytes{0x12, 0x10}));
    EXPECT_EQ(extradataOf(AV_CODEC_ID_AAC, Bytes{0x12}), Bytes{});
    EXPECT_EQ(extradataOf(AV_CODEC_ID_H264, kAvcC), kAvcC);
    EXPECT_EQ(extradataOf(AV_CODEC_ID_H264, Bytes(4, 1)), Bytes{});
    EXPECT_EQ(extradataOf(AV_CODEC_ID_VP9, Bytes(12, 1)), Bytes{}) << "the decoder needs none";
}

TEST(CodecConfig, TellsTheCodecWhereTheTagIsWrong) {
    EXPECT_EQ(codecOfConfig(AV_CODEC_ID_H264, kAvcC), AV_CODEC_ID_H264);
    EXPECT_EQ(codecOfConfig(AV_CODEC_ID_HEVC, hvcC()), AV_CODEC_ID_HEVC);
    EXPECT_EQ(codecOfConfig(AV_CODEC_ID_H264, hvcC()), AV_CODEC_ID_HEVC);
    EXPECT_EQ(codecOfConfig(AV_CODEC_ID_HEVC, kAvcC), AV_CODEC_ID_H264);
    EXPECT_EQ(codecOfConfig(AV_CODEC_ID_H264, Bytes(30, 1)), AV_CODEC_ID_H264) << "like neither";
    EXPECT_EQ(codecOfConfig(AV_CODEC_ID_AV1, kAvcC), AV_CODEC_ID_AV1);
    EXPECT_EQ(codecOfConfig(AV_CODEC_ID_H264, Bytes{}), AV_CODEC_ID_H264);
}

TEST(CodecConfig, IsNeededByFramesThatDoNotStandAlone) {
    EXPECT_TRUE(needsConfig(AV_CODEC_ID_H264, Bytes{0, 0, 0, 2, 0x65, 1}));
    EXPECT_FALSE(needsConfig(AV_CODEC_ID_H264, Bytes{0, 0, 0, 1, 0x67, 1})) << "start codes";
    EXPECT_FALSE(needsConfig(AV_CODEC_ID_HEVC, Bytes{0, 0, 1, 0x40, 1}));
    EXPECT_TRUE(needsConfig(AV_CODEC_ID_AAC, Bytes{0x21, 0x10}));
    EXPECT_FALSE(needsConfig(AV_CODEC_ID_AAC, Bytes{0xFF, 0xF1, 0x50})) << "ADTS";
    EXPECT_TRUE(needsConfig(AV_CODEC_ID_FLAC, Bytes{0xFF, 0xF8}));
    EXPECT_FALSE(needsConfig(AV_CODEC_ID_AV1, Bytes{1}));
    EXPECT_FALSE(needsConfig(AV_CODEC_ID_AC3, Bytes{1}));
}

TEST(CodecConfig, ImprovisesForOpusOnly) {
    EXPECT_EQ(defaultConfig(AV_CODEC_ID_OPUS, Bytes{0xFC}).size(), 19U);
    EXPECT_EQ(defaultConfig(AV_CODEC_ID_OPUS, Bytes{0xFC})[9], 2) << "stereo";
    EXPECT_EQ(defaultConfig(AV_CODEC_ID_OPUS, Bytes{0xF8})[9], 1);
    EXPECT_EQ(defaultConfig(AV_CODEC_ID_OPUS, Bytes{}), Bytes{});
    EXPECT_EQ(defaultConfig(AV_CODEC_ID_AAC, Bytes{0xFC}), Bytes{});
}

TEST(CodecConfig, TellsTheLengthBeforeEachNalUnit) {
    EXPECT_EQ(nalLengthSize(AV_CODEC_ID_H264, kAvcC), 4U);
    EXPECT_EQ(nalLengthSize(AV_CODEC_ID_H264, Bytes{1, 2, 3, 4, 0xFD}), 2U);
    EXPECT_EQ(nalLengthSize(AV_CODEC_ID_HEVC, hvcC()), 4U);
    EXPECT_EQ(nalLengthSize(AV_CODEC_ID_H264, Bytes{}), 0U);
    EXPECT_EQ(nalLengthSize(AV_CODEC_ID_AV1, kAvcC), 0U);
}

TEST(NoPicture, IsHeldByTagsOfInformationOnly) {
    struct Row {
        const char* name;
        AVCodecID codec;
        std::size_t lengthSize;
        Bytes payload;
        bool expected;
    };
    const std::vector<Row> rows{
        {"sei", AV_CODEC_ID_H264, 4, {0, 0, 0, 2, 6, 1}, true},
        {"two seis", AV_CODEC_ID_H264, 4, {0, 0, 0, 2, 6, 1, 0, 0, 0, 1, 6}, true},
        {"delimiter and sei", AV_CODEC_ID_H264, 4, {0, 0, 0, 2, 9, 0x10, 0, 0, 0, 1, 6}, true},
        {"sei and slice", AV_CODEC_ID_H264, 4, {0, 0, 0, 2, 6, 1, 0, 0, 0, 1, 0x65}, false},
        {"parameter sets", AV_CODEC_ID_H264, 4, {0, 0, 0, 2, 0x67, 1}, false},
        {"short lengths", AV_CODEC_ID_H264, 2, {0, 2, 6, 1, 0, 1, 0x65}, false},
        {"short lengths, sei", AV_CODEC_ID_H264, 1, {2, 6, 1}, true},
        {"length that lies", AV_CODEC_ID_H264, 4, {0xFF, 0xFF, 0xFF, 0xFF, 6, 1}, true},
        {"nothing", AV_CODEC_ID_H264, 4, {0, 0, 0}, true},
        {"empty units", AV_CODEC_ID_H264, 4, {0, 0, 0, 0, 0, 0, 0, 0, 0}, true},
        {"hevc sei", AV_CODEC_ID_HEVC, 4, {0, 0, 0, 2, 78, 1}, true},
        {"hevc sei and slice", AV_CODEC_ID_HEVC, 4, {0, 0, 0, 2, 78, 1, 0, 0, 0, 2, 2, 1}, false},
        {"no lengths", AV_CODEC_ID_AV1, 0, {0, 0, 0, 2, 6, 1}, false}};
    for (const Row& row : rows) {
        EXPECT_EQ(holdsNoPicture(row.codec, row.payload, row.lengthSize), row.expected) << row.name;
    }
}

TEST(WrappingTime, GoesOnWhereTheStampsWrap) {
    flv::WrappingTime time;
    EXPECT_EQ(time.next(0xFFFFFFF0), 0xFFFFFFF0LL) << "the first is taken as it is";
    EXPECT_EQ(time.next(0x10), 0x100000010LL);
    EXPECT_EQ(time.next(0xFFFFFFFF), 0xFFFFFFFFLL) << "other kinds of frames may be a little behind";
    EXPECT_EQ(time.next(0x80), 0x100000080LL);
    EXPECT_EQ(time.next(0x70000000), 0x170000000LL);
}

TEST(WrappingTime, TakesStampsFromBeforeTheBeginForWhatTheyAre) {
    flv::WrappingTime time;
    EXPECT_EQ(time.next(0), 0);
    EXPECT_EQ(time.next(0xFFFFFFD8), -40);
    EXPECT_EQ(time.next(40), 40);
}

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
