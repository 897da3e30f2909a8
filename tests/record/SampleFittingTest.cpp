#include "record/SampleFitting.h"

#include "ffmpeg/ChannelLayout.h"
#include "flv/FillPacket.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavcodec/packet.h>
}

namespace ko_player {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;

const Bytes kAvcConfig = {1, 0x64, 0, 0x1E, 0xFF, 0xE1, 0, 2, 0x67, 1, 1, 0, 1, 0x68};
const Bytes kSets = {0, 0, 0, 2, 0x67, 1, 0, 0, 0, 1, 0x68};

struct Sound {
    AVCodecID codec = AV_CODEC_ID_AAC;
    int sampleRate = 44100;
    int channels = 2;
    Bytes config = {};
};

ff_wrap::CodecParametersPtr parametersOf(const Sound& sound) {
    auto parameters = ff_wrap::makeCodecParameters();
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->codec_id = sound.codec;
    parameters->sample_rate = sound.sampleRate;
    if (sound.channels > 0) {
        parameters->ch_layout = ff_wrap::layoutFromMask(0, sound.channels);
    }
    if (!sound.config.empty()) {
        ff_wrap::allocExtradata(*parameters, sound.config.size());
        std::copy(sound.config.begin(), sound.config.end(), parameters->extradata);
    }
    return parameters;
}

std::shared_ptr<ff_wrap::Packet> packet(const Bytes& bytes, Bytes config = {}, bool isKey = false) {
    auto result = std::make_shared<ff_wrap::Packet>();
    FillPacket(*result, bytes.data(), static_cast<std::uint32_t>(bytes.size()), 40, config,
               isKey ? AV_PKT_FLAG_KEY : 0);
    (*result)->pts = 80;
    return result;
}

Bytes contentOf(const ff_wrap::Packet& packet) {
    return {packet->data, packet->data + packet->size};
}

TEST(FittingParameters, HaveAConfigurationForAac) {
    const auto made = fittingParameters(*parametersOf({}));
    EXPECT_THAT(Bytes(made->extradata, made->extradata + made->extradata_size), ElementsAre(0x12, 0x10));
    const auto kept = fittingParameters(*parametersOf({.config = {0x11, 0x90}}));
    EXPECT_THAT(Bytes(kept->extradata, kept->extradata + kept->extradata_size), ElementsAre(0x11, 0x90));
    EXPECT_EQ(fittingParameters(*parametersOf({.codec = AV_CODEC_ID_MP3}))->extradata_size, 0);
}

TEST(FittingParameters, AreNotMadeOfNonsense) {
    EXPECT_THROW(static_cast<void>(fittingParameters(*parametersOf({.sampleRate = 0}))), std::runtime_error);
    EXPECT_THROW(static_cast<void>(fittingParameters(*parametersOf({.sampleRate = -1}))), std::runtime_error);
    EXPECT_THROW(static_cast<void>(fittingParameters(*parametersOf({.channels = 0}))), std::runtime_error);
    EXPECT_THROW(static_cast<void>(fittingParameters(*parametersOf({.sampleRate = 44000}))),
                 std::runtime_error);
}

struct SameCase {
    const char* name;
    Sound inFile;
    Sound coming;
    bool isSame;
};

void PrintTo(const SameCase& row, std::ostream* out) {
    *out << row.name;
}

class SoundsOf : public testing::TestWithParam<SameCase> {};

TEST_P(SoundsOf, AreTheSameOrNot) {
    EXPECT_EQ(isSameSound(*parametersOf(GetParam().inFile), *parametersOf(GetParam().coming)),
              GetParam().isSame);
}

INSTANTIATE_TEST_SUITE_P(
    All, SoundsOf,
    testing::Values(
        SameCase{"Equal", {}, {}, true}, SameCase{"OtherCodec", {}, {.codec = AV_CODEC_ID_MP3}, false},
        SameCase{"OtherRate", {}, {.sampleRate = 48000}, false},
        SameCase{"OtherChannels", {}, {.channels = 1}, false},
        SameCase{"ConfigurationsBeatTheRest",
                 {.sampleRate = 8000, .config = {0x12, 0x10}},
                 {.config = {0x12, 0x10}},
                 true},
        SameCase{"InMoreWords", {.config = {0x12, 0x10}}, {.config = {0x12, 0x10, 0x56, 0xE5, 0}}, true},
        SameCase{"OtherConfiguration", {.config = {0x12, 0x10}}, {.config = {0x11, 0x90}}, false},
        SameCase{"BrokenButEqual", {.config = {0x12}}, {.config = {0x12}}, true},
        SameCase{"BrokenAndOther", {.config = {0x12}}, {.config = {0x12, 0x10}}, false}),
    [](const auto& instance) { return instance.param.name; });

TEST(NewConfiguration, IsOneThatTheFileDoesNotHave) {
    const auto inFile = parametersOf({.config = {0x12, 0x10}});
    EXPECT_FALSE(bringsNewConfiguration(*packet({1}), *inFile));
    EXPECT_FALSE(bringsNewConfiguration(*packet({1}, {0x12, 0x10}), *inFile));
    EXPECT_FALSE(bringsNewConfiguration(*packet({1}, {0x12, 0x10, 0x56, 0xE5, 0}), *inFile));
    EXPECT_TRUE(bringsNewConfiguration(*packet({1}, {0x11, 0x90}), *inFile));
}

struct FitCase {
    const char* name;
    AVCodecID codec;
    Bytes bytes;
    Bytes expected;
};

void PrintTo(const FitCase& row, std::ostream* out) {
    *out << row.name;
}

class FramesOf : public testing::TestWithParam<FitCase> {};

TEST_P(FramesOf, ComeWithoutTheirFraming) {
    const auto frame = packet(GetParam().bytes);
    makeFit(*frame, GetParam().codec);
    EXPECT_EQ(contentOf(*frame), GetParam().expected);
    EXPECT_EQ((*frame)->dts, 40);
}

INSTANTIATE_TEST_SUITE_P(
    All, FramesOf,
    testing::Values(FitCase{"Adts", AV_CODEC_ID_AAC, {0xFF, 0xF1, 2, 3, 4, 5, 6, 7, 8, 9}, {7, 8, 9}},
                    FitCase{"AdtsWithChecksum", AV_CODEC_ID_AAC, {0xFF, 0xF0, 2, 3, 4, 5, 6, 7, 8, 9}, {9}},
                    FitCase{"Raw",
                            AV_CODEC_ID_AAC,
                            {0x21, 0xF1, 2, 3, 4, 5, 6, 7, 8, 9},
                            {0x21, 0xF1, 2, 3, 4, 5, 6, 7, 8, 9}},
                    FitCase{"NothingBehindTheHeader",
                            AV_CODEC_ID_AAC,
                            {0xFF, 0xF0, 2, 3, 4, 5, 6, 7, 8},
                            {0xFF, 0xF0, 2, 3, 4, 5, 6, 7, 8}},
                    FitCase{"Mp3",
                            AV_CODEC_ID_MP3,
                            {0xFF, 0xF1, 2, 3, 4, 5, 6, 7, 8, 9},
                            {0xFF, 0xF1, 2, 3, 4, 5, 6, 7, 8, 9}},
                    FitCase{"OtherLayer",
                            AV_CODEC_ID_AAC,
                            {0xFF, 0xF3, 2, 3, 4, 5, 6, 7, 8, 9},
                            {0xFF, 0xF3, 2, 3, 4, 5, 6, 7, 8, 9}}),
    [](const auto& instance) { return instance.param.name; });

/// What a follower makes of a picture.
Bytes followed(ConfigurationFollower& follower, std::shared_ptr<ff_wrap::Packet> picture) {
    follower.notice(*picture, AV_CODEC_ID_H264);
    const auto result = follower.withParameterSets(std::move(picture));
    EXPECT_EQ((*result)->dts, 40);
    EXPECT_EQ((*result)->pts, 80);
    return contentOf(*result);
}

TEST(ConfigurationFollower, LeavesAStreamAloneThatHasButOne) {
    ConfigurationFollower follower;
    EXPECT_THAT(followed(follower, packet({1, 2}, {}, true)), ElementsAre(1, 2));
    EXPECT_THAT(followed(follower, packet({3})), ElementsAre(3));
}

TEST(ConfigurationFollower, WritesANewOneAndRepeatsItWhereAPlayerMayBegin) {
    Bytes expected = kSets;
    expected.push_back(9);
    ConfigurationFollower follower;
    EXPECT_EQ(followed(follower, packet({9}, kAvcConfig)), expected);
    EXPECT_THAT(followed(follower, packet({9})), ElementsAre(9));
    EXPECT_EQ(followed(follower, packet({9}, {}, true)), expected);
    EXPECT_EQ(followed(follower, packet({9}, {1, 2, 3}, true)), expected) << "a broken one changes nothing";
}

} // namespace
} // namespace ko_player
