#include "support/media/Clip.h"
#include "DecodeClip.h"
#include "support/ChildProcess.h"
#include "support/Platform.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

namespace mediaworker::test {
namespace {

/// Every NAL unit of the packet lies behind a 4-byte length, and they fill it.
bool isLengthPrefixed(const std::vector<std::uint8_t>& bytes) {
    std::size_t offset = 0;
    while (offset + 4 <= bytes.size()) {
        const std::size_t length = static_cast<std::size_t>(bytes[offset]) << 24U |
                                   static_cast<std::size_t>(bytes[offset + 1]) << 16U |
                                   static_cast<std::size_t>(bytes[offset + 2]) << 8U | bytes[offset + 3];
        offset += 4 + length;
    }
    return offset == bytes.size() && !bytes.empty();
}

struct Case {
    const char* name;
    VideoCodec codec;
    int bFrames;
    bool tenBit;
    bool zeroLatency;
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

class VideoClip : public testing::TestWithParam<Case> {
protected:
    static ClipSpec spec() {
        ClipSpec result;
        result.codec = GetParam().codec;
        result.bFrames = GetParam().bFrames;
        result.tenBit = GetParam().tenBit;
        result.zeroLatency = GetParam().zeroLatency;
        result.firstFrameNumber = 1000;
        result.frames = 60;
        return result;
    }
};

TEST_P(VideoClip, HasPacketsAsAStreamCarriesThem) {
    const Clip clip = encode(spec());
    ASSERT_EQ(clip.video.size(), 60U);
    EXPECT_EQ(clip.videoConfig.at(0), 1) << "configurationVersion";
    for (std::size_t i = 0; i < clip.video.size(); ++i) {
        EXPECT_TRUE(isLengthPrefixed(clip.video[i].bytes)) << i;
        EXPECT_EQ(clip.video[i].dtsMs, static_cast<std::int64_t>(i) * 40);
        EXPECT_EQ(clip.video[i].isKey, i % 25 == 0) << i;
    }
}

TEST_P(VideoClip, ShowsItsPicturesInOrderWithTheForetoldTimeStamps) {
    const Clip clip = encode(spec());
    const auto pictures = decode(clip);
    const auto expected = shownPictures(clip);
    ASSERT_EQ(pictures.size(), expected.size());
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        EXPECT_EQ(readFrameNumber(pictures[i].view()), expected[i].frameNumber) << i;
        EXPECT_EQ(pictures[i].stampMs, expected[i].stampMs) << i;
    }
    EXPECT_EQ(expected.front().stampMs > 0, GetParam().bFrames > 0);
}

INSTANTIATE_TEST_SUITE_P(Codecs, VideoClip,
                         testing::Values(Case{"H264", VideoCodec::Avc, 0, false, false},
                                         Case{"H264ZeroLatency", VideoCodec::Avc, 0, false, true},
                                         Case{"H264WithBFrames", VideoCodec::Avc, 3, false, false},
                                         Case{"H264TenBit", VideoCodec::Avc, 0, true, false},
                                         Case{"Hevc", VideoCodec::Hevc, 0, false, false},
                                         Case{"HevcWithBFrames", VideoCodec::Hevc, 3, false, false}),
                         [](const auto& instance) { return instance.param.name; });

struct SoundCase {
    const char* name;
    AudioCodec codec;
    int sampleRate;
    int channels;
};

void PrintTo(const SoundCase& row, std::ostream* out) {
    *out << row.name;
}

class SoundClip : public testing::TestWithParam<SoundCase> {};

TEST_P(SoundClip, HasSoundOfThePicturesLength) {
    ClipSpec spec;
    spec.audio = GetParam().codec;
    spec.sampleRate = GetParam().sampleRate;
    spec.channels = GetParam().channels;
    const Clip clip = encode(spec);
    ASSERT_FALSE(clip.audio.empty());
    EXPECT_EQ(clip.audioConfig.empty(), GetParam().codec != AudioCodec::Aac);
    EXPECT_EQ(clip.audio.front().dtsMs, 0);
    EXPECT_NEAR(static_cast<double>(clip.audio.back().dtsMs), static_cast<double>(clip.durationMs()), 80);
    for (std::size_t i = 1; i < clip.audio.size(); ++i) {
        EXPECT_LT(clip.audio[i - 1].dtsMs, clip.audio[i].dtsMs);
    }
}

INSTANTIATE_TEST_SUITE_P(Codecs, SoundClip,
                         testing::Values(SoundCase{"AacStereo", AudioCodec::Aac, 44100, 2},
                                         SoundCase{"AacMono", AudioCodec::Aac, 48000, 1},
                                         SoundCase{"Mp3", AudioCodec::Mp3, 44100, 2},
                                         SoundCase{"ALaw", AudioCodec::ALaw, 8000, 1},
                                         SoundCase{"MuLaw", AudioCodec::MuLaw, 8000, 1}),
                         [](const auto& instance) { return instance.param.name; });

TEST(Clip, IsEncodedOnceAndThenTakenFromTheCache) {
    const TemporaryFolder folder;
    platform::setVariable("MEDIAWORKER_TEST_CACHE", folder.path().string().c_str());
    ClipSpec spec;
    spec.frames = 3;
    const auto first = encodedFile(spec);
    const auto written = std::filesystem::last_write_time(first);
    EXPECT_EQ(encodedFile(spec), first);
    EXPECT_EQ(std::filesystem::last_write_time(first), written);
    spec.frames = 4;
    EXPECT_NE(encodedFile(spec), first);
    platform::setVariable("MEDIAWORKER_TEST_CACHE", nullptr);
}

TEST(Clip, SaysWhatTheEncoderDidNotLike) {
    ClipSpec spec;
    spec.frames = 3;
    spec.extraVideoArguments = {"-no_such_option", "1"};
    try {
        static_cast<void>(encode(spec));
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("no_such_option"), std::string::npos) << error.what();
    }
}

} // namespace
} // namespace mediaworker::test
