#include "flv/StandardTags.h"

#include "RecordingObserver.h"
#include "flv/Dialect.h"
#include "support/FlvWriter.h"

#include <gmock/gmock.h>

#include <string>

namespace ko_player::flv {
namespace {

using mediaworker::test::FlvWriter;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes text(std::string_view characters) {
    return {characters.begin(), characters.end()};
}

/// What a body gives, in one line.
std::string describe(const Packet& packet) {
    std::string line;
    for (std::uint32_t i = 0; i < packet.size; ++i) {
        line += ' ' + std::to_string(packet.data[i]);
    }
    return line;
}

template <class PacketType>
std::string ending(const ParsedTag<PacketType>& tag) {
    if (tag.packet.valid) {
        return describe(tag.packet);
    }
    return tag.isForNobody ? "nobody" : "error:" + tag.error;
}

std::string video(const Bytes& body, TrackChoice& track) {
    const ExactCopy copy(body);
    const auto tag = parseStandardVideoTag(7, copy.span(), track);
    if (!tag.packet.valid) {
        return ending(tag);
    }
    EXPECT_EQ(tag.packet.timestamp, 7U);
    return std::to_string(tag.packet.codecId) + (tag.packet.isKeyFrame ? " key" : "") +
           (tag.packet.isSequenceHeader ? " config" : "") + " +" + std::to_string(tag.packet.compositionMs) +
           ":" + ending(tag);
}

std::string video(const Bytes& body) {
    TrackChoice track;
    return video(body, track);
}

std::string audio(const Bytes& body, TrackChoice& track) {
    const ExactCopy copy(body);
    const auto tag = parseStandardAudioTag(7, copy.span(), track);
    return tag.packet.valid ? std::to_string(tag.packet.soundFormat) +
                                  (tag.packet.isSequenceHeader ? " config:" : ":") + ending(tag)
                            : ending(tag);
}

std::string audio(const Bytes& body) {
    TrackChoice track;
    return audio(body, track);
}

std::string number(std::uint32_t fourCcValue) {
    return std::to_string(fourCcValue);
}

const std::string kAvc1 = number(fourCc("avc1"));
const std::string kAv01 = number(fourCc("av01"));
const std::string kMp4a = number(fourCc("mp4a"));

TEST(StandardTags, FourCcsAreBigEndian) {
    EXPECT_EQ(fourCc("hvc1"), 1752589105U);
}

TEST(StandardVideoTags, PlainOnesAreRead) {
    EXPECT_EQ(video({0x17, 0, 0, 0, 0, 1, 2}), "7 key config +0: 1 2");
    EXPECT_EQ(video({0x17, 1, 0, 0, 40, 5}), "7 key +40: 5");
    EXPECT_EQ(video({0x27, 1, 0xFF, 0xFF, 0xD8, 5}), "7 +-40: 5");
    EXPECT_EQ(video({0x2C, 1, 0x80, 0, 0, 5}), "12 +-8388608: 5");
    EXPECT_EQ(video({0x1D, 1, 0x7F, 0xFF, 0xFF, 5}), "13 key +8388607: 5");
    EXPECT_EQ(video({0x47, 1, 0, 0, 0, 5}), "7 key +0: 5") << "generated key frame";
    EXPECT_EQ(video({0x37, 1, 0, 0, 0, 5}), "7 +0: 5") << "disposable frame";
    EXPECT_EQ(video({0x12, 9, 8}), "2 key +0: 9 8") << "H.263 has no further header";
}

TEST(StandardVideoTags, WhatIsNoPictureIsForNobody) {
    for (const Bytes& body : {Bytes{}, Bytes{0x57, 0}, Bytes{0x17, 2, 0, 0, 0}, Bytes{0x17, 9, 0, 0, 0, 5},
                              Bytes{0x17, 1, 0, 0, 0}, Bytes{0xD4, 0}, Bytes{0x94} + text("avc1") + Bytes{1},
                              Bytes{0x92} + text("avc1"), Bytes{0x95} + text("av01") + Bytes{1},
                              Bytes{0x98} + text("avc1") + Bytes{1}, Bytes{0x12}}) {
        EXPECT_EQ(video(body), "nobody") << testing::PrintToString(body);
    }
}

TEST(StandardVideoTags, EnhancedOnesAreRead) {
    EXPECT_EQ(video(Bytes{0x90} + text("avc1") + Bytes{1, 2}), kAvc1 + " key config +0: 1 2");
    EXPECT_EQ(video(Bytes{0x91} + text("avc1") + Bytes{0, 0, 80, 5}), kAvc1 + " key +80: 5");
    EXPECT_EQ(video(Bytes{0xA1} + text("avc1") + Bytes{0xFF, 0xFF, 0xFF, 5}), kAvc1 + " +-1: 5");
    EXPECT_EQ(video(Bytes{0xA3} + text("avc1") + Bytes{0, 0, 80, 5}), kAvc1 + " +0: 0 0 80 5");
    EXPECT_EQ(video(Bytes{0xA1} + text("hvc1") + Bytes{0, 0, 80, 5}), number(fourCc("hvc1")) + " +80: 5");
    for (const char* codec : {"av01", "vp09", "vp08", "xxxx"}) {
        EXPECT_THAT(video(Bytes{0x91} + text(codec) + Bytes{0, 0, 80, 5}),
                    testing::EndsWith(" key +0: 0 0 80 5"))
            << codec << " has no composition time";
    }
}

TEST(StandardVideoTags, ModExIsSteppedOver) {
    // modExDataSize - 1, data, ModExType and packet type
    EXPECT_EQ(video(Bytes{0x97, 2, 1, 2, 3, 0x01} + text("av01") + Bytes{5}), kAv01 + " key +0: 5");
    const Bytes twice = Bytes{0x97, 0, 1, 0x17, 1, 1, 2, 0x03} + text("av01") + Bytes{5};
    EXPECT_EQ(video(twice), kAv01 + " key +0: 5");
    const Bytes longOne = Bytes{0x97, 0xFF, 1, 0} + Bytes(257, 9) + Bytes{0x01} + text("av01") + Bytes{5};
    EXPECT_EQ(video(longOne), kAv01 + " key +0: 5");
}

TEST(StandardAudioTags, PlainOnesAreRead) {
    EXPECT_EQ(audio({0xAF, 0, 0x12, 0x10}), "10 config: 18 16");
    EXPECT_EQ(audio({0xAF, 1, 5}), "10: 5");
    EXPECT_EQ(audio({0x2E, 5}), "2: 5");
    EXPECT_EQ(audio({0x72, 5}), "7: 5");
    EXPECT_EQ(audio({0xB2, 5}), "11: 5");
    EXPECT_EQ(audio({0xE0, 5}), "14: 5");
    TrackChoice track;
    const Bytes stereo{0x7F, 5};
    const auto tag = parseStandardAudioTag(0, stereo, track);
    EXPECT_EQ(tag.packet.channels, 2U);
    EXPECT_EQ(tag.packet.sampleRate, 44100U);
    EXPECT_TRUE(tag.packet.is16Bit);
}

TEST(StandardAudioTags, WhatIsNoSoundIsForNobody) {
    for (const Bytes& body :
         {Bytes{}, Bytes{0xAF}, Bytes{0xAF, 1}, Bytes{0xAF, 0}, Bytes{0xAF, 2, 5}, Bytes{0x2E},
          Bytes{0x92} + text("mp4a"), Bytes{0x94} + text("mp4a") + Bytes{1, 2}, Bytes{0x91} + text("mp4a"),
          Bytes{0x93} + text("mp4a") + Bytes{1}}) {
        const std::string result = audio(body);
        EXPECT_TRUE(result == "nobody") << testing::PrintToString(body) << result;
    }
}

TEST(StandardAudioTags, EnhancedOnesAreRead) {
    EXPECT_EQ(audio(Bytes{0x90} + text("mp4a") + Bytes{0x12, 0x10}), kMp4a + " config: 18 16");
    EXPECT_EQ(audio(Bytes{0x91} + text("mp4a") + Bytes{5}), kMp4a + ": 5");
    EXPECT_EQ(audio(Bytes{0x97, 2, 1, 2, 3, 0x01} + text("mp4a") + Bytes{5}), kMp4a + ": 5");
}

TEST(StandardTracks, TheFirstOneIsRead) {
    TrackChoice track;
    const Bytes oneTrack = Bytes{0x96, 0x01} + text("av01"); // OneTrack, CodedFrames
    EXPECT_EQ(video(oneTrack + Bytes{3, 5}, track), kAv01 + " key +0: 5");
    EXPECT_FALSE(track.hasOthers);
    EXPECT_EQ(video(oneTrack + Bytes{4, 6}, track), "nobody");
    EXPECT_TRUE(track.hasOthers);
    EXPECT_EQ(video(oneTrack + Bytes{3, 7}, track), kAv01 + " key +0: 7");
    EXPECT_EQ(video({0x17, 1, 0, 0, 0, 5}, track), "nobody") << "a tag without tracks has track 0";
}

TEST(StandardTracks, OneOfSeveralInATagIsRead) {
    // ManyTracks: the codec once, then id, size and data of each
    const Bytes many =
        Bytes{0x96, 0x11} + text("avc1") + Bytes{1, 0, 0, 4, 0, 0, 40, 5} + Bytes{2, 0, 0, 4, 0, 0, 80, 6};
    EXPECT_EQ(video(many), kAvc1 + " key +40: 5");
    TrackChoice second;
    second.chosen = 2;
    EXPECT_EQ(video(many, second), kAvc1 + " key +80: 6");
    EXPECT_TRUE(second.hasOthers);
    // ManyTracksManyCodecs
    const Bytes codecs = Bytes{0x96, 0x21} + text("avc1") + Bytes{1, 0, 0, 4, 0, 0, 40, 5} + text("av01") +
                         Bytes{2, 0, 0, 1, 6};
    EXPECT_EQ(video(codecs), kAvc1 + " key +40: 5");
    TrackChoice other;
    other.chosen = 2;
    EXPECT_EQ(video(codecs, other), kAv01 + " key +0: 6");
    const Bytes sound =
        Bytes{0x95, 0x21} + text("mp4a") + Bytes{1, 0, 0, 1, 5} + text("Opus") + Bytes{2, 0, 0, 1, 6};
    EXPECT_EQ(audio(sound), kMp4a + ": 5");
}

TEST(StandardTracks, AnUnknownKindIsAnError) {
    EXPECT_EQ(video(Bytes{0x96, 0x31} + text("av01") + Bytes{0, 5}), "error: unknown multitrack type");
    EXPECT_EQ(audio(Bytes{0x95, 0x31} + text("mp4a") + Bytes{0, 5}), "error:unknown multitrack type");
}

/// A whole body, and where its payload begins: whatever ends before that is cut off in its header.
struct HeaderRow {
    const char* name;
    bool isVideo;
    Bytes header;
    bool tellsSize = false; ///< of the payload, so that an empty one is too short
};

void PrintTo(const HeaderRow& row, std::ostream* out) {
    *out << row.name;
}

class EveryHeader : public testing::TestWithParam<HeaderRow> {};

TEST_P(EveryHeader, IsNeverReadPastItsEnd) {
    const HeaderRow& row = GetParam();
    const auto read = [&](const Bytes& body) { return row.isVideo ? video(body) : audio(body); };
    EXPECT_THAT(read(row.header + Bytes{5}), testing::EndsWith(": 5"));
    EXPECT_THAT(read(row.header), testing::StartsWith(row.tellsSize ? "error:" : "nobody")) << "empty";
    for (std::size_t size = 1; size < row.header.size(); ++size) {
        const Bytes cut(row.header.begin(), row.header.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_THAT(read(cut), testing::AnyOf(testing::StartsWith("error:"), "nobody")) << size;
    }
    EXPECT_EQ(read({}), "nobody");
}

INSTANTIATE_TEST_SUITE_P(
    All, EveryHeader,
    testing::Values(HeaderRow{"PlainAvc", true, Bytes{0x17, 1, 0, 0, 40}},
                    HeaderRow{"PlainConfig", true, Bytes{0x17, 0, 0, 0, 0}},
                    HeaderRow{"Config", true, Bytes{0x90} + text("hvc1")},
                    HeaderRow{"Frames", true, Bytes{0x91} + text("hvc1") + Bytes{0, 0, 40}},
                    HeaderRow{"FramesX", true, Bytes{0x93} + text("hvc1")},
                    HeaderRow{"ModEx", true, Bytes{0x97, 2, 1, 2, 3, 0x03} + text("avc1")},
                    HeaderRow{"LongModEx", true, Bytes{0x97, 0xFF, 0, 1, 1, 2, 0x03} + text("avc1")},
                    HeaderRow{"OneTrack", true, Bytes{0x96, 0x01} + text("avc1") + Bytes{0, 0, 0, 40}},
                    HeaderRow{"ManyTracks", true, Bytes{0x96, 0x11} + text("av01") + Bytes{0, 0, 0, 1}, true},
                    HeaderRow{"ModExAndTracks", true,
                              Bytes{0x97, 0, 1, 0x06, 0x21} + text("av01") + Bytes{0, 0, 0, 1}, true},
                    HeaderRow{"PlainAac", false, Bytes{0xAF, 1}}, HeaderRow{"PlainMp3", false, Bytes{0x2E}},
                    HeaderRow{"Sound", false, Bytes{0x91} + text("Opus")},
                    HeaderRow{"SoundModEx", false, Bytes{0x97, 2, 1, 2, 3, 0x01} + text("Opus")},
                    HeaderRow{"SoundTrack", false, Bytes{0x95, 0x01} + text("Opus") + Bytes{0}},
                    HeaderRow{"SoundTracks", false, Bytes{0x95, 0x11} + text("Opus") + Bytes{0, 0, 0, 1},
                              true}),
    [](const auto& test) { return test.param.name; });

} // namespace
} // namespace ko_player::flv
