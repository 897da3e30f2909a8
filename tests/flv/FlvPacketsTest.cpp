#include "flv/FlvPackets.h"

#include "RecordingObserver.h"

#include <gmock/gmock.h>

namespace ko_player::flv {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

struct AudioCase {
    const char* name;
    Bytes body;
    const char* error; ///< "" for a valid packet
    AudioPacket expected{};
    std::size_t payloadOffset = 0;
};

void PrintTo(const AudioCase& row, std::ostream* out) {
    *out << row.name;
}

AudioPacket audio(std::uint32_t format, std::uint32_t rate, bool is16Bit, std::uint32_t channels,
                  bool isSequenceHeader, std::uint32_t size) {
    AudioPacket packet;
    packet.soundFormat = format;
    packet.sampleRate = rate;
    packet.is16Bit = is16Bit;
    packet.channels = channels;
    packet.isSequenceHeader = isSequenceHeader;
    packet.size = size;
    return packet;
}

class AudioTag : public testing::TestWithParam<AudioCase> {};

TEST_P(AudioTag, IsParsed) {
    const AudioCase& row = GetParam();
    const ExactCopy body(row.body);
    const auto tag = parseAudioTag(1234, body.span());
    EXPECT_EQ(tag.error, row.error);
    EXPECT_EQ(tag.packet.valid, tag.error.empty());
    if (!tag.packet.valid) {
        return;
    }
    EXPECT_EQ(tag.packet.timestamp, 1234U);
    EXPECT_EQ(tag.packet.soundFormat, row.expected.soundFormat);
    EXPECT_EQ(tag.packet.sampleRate, row.expected.sampleRate);
    EXPECT_EQ(tag.packet.is16Bit, row.expected.is16Bit);
    EXPECT_EQ(tag.packet.channels, row.expected.channels);
    EXPECT_EQ(tag.packet.isSequenceHeader, row.expected.isSequenceHeader);
    EXPECT_EQ(tag.packet.size, row.expected.size);
    EXPECT_EQ(tag.packet.data, body.data() + row.payloadOffset);
}

INSTANTIATE_TEST_SUITE_P(
    All, AudioTag,
    testing::Values(
        AudioCase{"AacSequenceHeader", {0xAF, 0, 0x12, 0x10}, "", audio(10, 44000, true, 2, true, 2), 2},
        AudioCase{"AacFrame", {0xAF, 1, 0x21}, "", audio(10, 44000, true, 2, false, 1), 2},
        AudioCase{"AacOtherPacketTypeIsAFrame", {0xAF, 7, 0x21}, "", audio(10, 44000, true, 2, false, 1), 2},
        AudioCase{"AacFrameWithoutData", {0xAF, 1}, "data size is 0"},
        AudioCase{"AacSequenceHeaderWithoutData", {0xAF, 0}, "data size is 0"},
        AudioCase{"Mp3", Bytes{0x2E} + Bytes(100, 0xFF), "", audio(2, 44000, true, 1, false, 100), 1},
        AudioCase{"Mp3FirstByteZeroIsNoSequenceHeader", {0x2F, 0}, "", audio(2, 44000, true, 2, false, 1), 1},
        AudioCase{"ALawLowestRate8Bit", {0x70, 0xD5}, "", audio(7, 5500, false, 1, false, 1), 1},
        AudioCase{"MuLawSecondRate", {0x84, 0xFF}, "", audio(8, 11000, false, 1, false, 1), 1},
        AudioCase{"Mp3ThirdRate", {0x2B, 0xFF}, "", audio(2, 22000, true, 2, false, 1), 1},
        AudioCase{"Speex", {0xB2, 1, 2}, "unsupported fmt: 11"},
        AudioCase{"Adpcm", {0x12, 1, 2}, "unsupported fmt: 1"},
        AudioCase{"LinearPcm", {0x02, 1, 2}, "unsupported fmt: 0"},
        AudioCase{"Nellymoser", {0x62, 1, 2}, "unsupported fmt: 6"},
        AudioCase{"Mp38k", {0xE2, 1, 2}, "unsupported fmt: 14"},
        AudioCase{"OneByte", {0xAF}, "size is less than header size: 1"},
        AudioCase{"Empty", {}, "size is less than header size: 0"}),
    [](const auto& test) { return test.param.name; });

struct VideoCase {
    const char* name;
    Bytes body;
    bool valid;
    const char* error; ///< may be empty although the packet is invalid
    bool isKeyFrame = false;
    bool isSequenceHeader = false;
};

void PrintTo(const VideoCase& row, std::ostream* out) {
    *out << row.name;
}

class VideoTag : public testing::TestWithParam<VideoCase> {};

TEST_P(VideoTag, IsParsed) {
    const VideoCase& row = GetParam();
    const ExactCopy body(row.body);
    const auto tag = parseVideoTag(77, body.span());
    EXPECT_EQ(tag.packet.valid, row.valid);
    EXPECT_EQ(tag.error, row.error);
    if (!row.valid) {
        return;
    }
    EXPECT_EQ(tag.packet.timestamp, 77U);
    EXPECT_EQ(tag.packet.isKeyFrame, row.isKeyFrame);
    EXPECT_EQ(tag.packet.isSequenceHeader, row.isSequenceHeader);
    EXPECT_EQ(tag.packet.data, body.data() + 5);
    EXPECT_EQ(tag.packet.size, body.size() - 5);
}

const Bytes kNal10 = Bytes{0, 0, 0, 10} + Bytes(10, 0x65);

INSTANTIATE_TEST_SUITE_P(
    All, VideoTag,
    testing::Values(
        VideoCase{"AvcKeyFrame", Bytes{0x17, 1, 0, 0, 0} + kNal10, true, "", true},
        VideoCase{"AvcInterFrame", Bytes{0x27, 1, 0, 0, 0} + kNal10, true, "", false},
        VideoCase{"GeneratedKeyFrame", Bytes{0x47, 1, 0, 0, 0} + kNal10, true, "", true},
        VideoCase{"HevcKeyFrame", Bytes{0x1C, 1, 0, 0, 0} + kNal10, true, "", true},
        VideoCase{"CompositionTimeIsSkipped", Bytes{0x27, 1, 0, 0, 40} + kNal10, true, "", false},
        VideoCase{"SequenceHeader", {0x17, 0, 0, 0, 0, 1}, true, "", true, true},
        VideoCase{"SequenceHeaderInAnInterFrame", {0x27, 0, 0, 0, 0, 1}, true, "", false, true},
        VideoCase{"OnlyTheFirstNalIsChecked", Bytes{0x17, 1, 0, 0, 0} + kNal10 + Bytes{0xFF, 0xFF}, true, "",
                  true},
        VideoCase{"EmptyFirstNal", {0x17, 1, 0, 0, 0, 0, 0, 0, 0, 9}, true, "", true},
        VideoCase{"SmallestNal", {0x17, 1, 0, 0, 0, 0, 0, 0, 1, 9}, true, "", true},
        VideoCase{"FirstNalOneTooLong", Bytes{0x17, 1, 0, 0, 0, 0, 0, 0, 11} + Bytes(10, 0x65), false, ""},
        VideoCase{"FirstNalLengthThatWouldWrap",
                  Bytes{0x17, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF} + Bytes(10, 0x65), false, ""},
        VideoCase{"FirstNalLengthThatWouldWrapToNothing",
                  Bytes{0x17, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFC} + Bytes(10, 0x65), false, ""},
        VideoCase{"NalUnitsOfFourBytes", {0x17, 1, 0, 0, 0, 0, 0, 0, 0}, false, ""},
        VideoCase{"NoNalUnits", {0x17, 1, 0, 0, 0}, false, ""},
        VideoCase{"SequenceHeaderOfFiveBytes", {0x17, 0, 0, 0, 0}, false, ""},
        VideoCase{"HeaderCutOff", {0x17, 1}, false, ""},
        VideoCase{"EndOfSequence", {0x17, 2, 0, 0, 0, 0}, false, ""},
        VideoCase{"UnknownPacketType", {0x17, 3, 0, 0, 0, 0}, false, ""},
        VideoCase{"OneByte", {0x17}, false, " size <= headerSize"},
        VideoCase{"Empty", {}, false, " size <= headerSize"},
        VideoCase{"Codec2", {0x12, 1, 0, 0, 0, 0}, false, " invalid video codec"},
        VideoCase{"Codec0", {0x10, 1, 0, 0, 0, 0}, false, " invalid video codec"},
        VideoCase{"CodecIsCheckedBeforeFrameType", {0x32, 1, 0, 0, 0, 0}, false, " invalid video codec"},
        VideoCase{"FrameType3", {0x37, 1, 0, 0, 0, 0}, false, " undef frameType"},
        VideoCase{"FrameType5", {0x57, 1, 0, 0, 0, 0}, false, " undef frameType"},
        VideoCase{"FrameType0", {0x07, 1, 0, 0, 0, 0}, false, " undef frameType"},
        VideoCase{"FrameType6", {0x6C, 1, 0, 0, 0, 0}, false, " undef frameType"},
        VideoCase{"FrameType15", {0xF7, 1, 0, 0, 0, 0}, false, " undef frameType"},
        VideoCase{"FrameTypeIsCheckedBeforeSize", {0x37, 1}, false, " undef frameType"}),
    [](const auto& test) { return test.param.name; });

} // namespace
} // namespace ko_player::flv
