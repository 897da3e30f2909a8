#include "output/AudioBuffer.h"
#include "support/LogCapture.h"

extern "C" {
#include <libavutil/samplefmt.h>
}

#include <gtest/gtest.h>

#include <numeric>

namespace ko_player::details {
namespace {

using mediaworker::test::LogCapture;

AudioParams stereo48k() {
    AudioParams params;
    params.format = AV_SAMPLE_FMT_S16;
    params.sampleRate = 48000;
    params.channels = 2;
    return params;
}

std::vector<std::uint8_t> counting(std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return bytes;
}

TEST(AudioBuffer, SizesItsPartsByTheRate) {
    LogCapture log;
    const AudioBuffer buffer(stereo48k());
    EXPECT_EQ(buffer.partSize(), 76800U);
    EXPECT_TRUE(
        log.contains("ko_player::details::AudioBuffer::AudioBuffer: AudioBuffer: bps: 192000 rate: 48000 "
                     "minpart: 38400"));
}

TEST(AudioBuffer, TruncatesTheTenthOfASecond) {
    AudioParams params = stereo48k();
    params.sampleRate = 11025;
    params.channels = 1;
    const AudioBuffer buffer(params); // 22050 bytes a second, a tenth is 2205
    EXPECT_EQ(buffer.partSize(), 8820U);
}

TEST(AudioBuffer, RefusesParametersWithoutASize) {
    AudioParams params = stereo48k();
    params.format = -1;
    EXPECT_THROW(AudioBuffer{params}, std::logic_error);
    params = stereo48k();
    params.sampleRate = 0;
    try {
        AudioBuffer buffer(params);
        FAIL();
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "AudioBuffer invalid audio params");
    }
}

TEST(AudioBuffer, GivesALargePartThenSmallOnes) {
    AudioBuffer buffer(stereo48k());
    const auto bytes = counting(76800 + 38400 + 100);
    buffer.append(bytes.data(), bytes.size());
    EXPECT_EQ(buffer.front().size(), 76800U);
    EXPECT_TRUE(buffer.consumePart());
    EXPECT_EQ(buffer.partSize(), 38400U);
    EXPECT_EQ(buffer.front().size(), 38400U);
    EXPECT_EQ(buffer.front()[0], bytes[76800]);
    EXPECT_FALSE(buffer.consumePart());
    EXPECT_EQ(buffer.front().size(), 100U);
    EXPECT_DOUBLE_EQ(buffer.bufferedDurationMs(), 25 * 1000.0 / 48000);
    EXPECT_FALSE(buffer.consumePart());
    EXPECT_EQ(buffer.bufferedBytes(), 0U);
    EXPECT_EQ(buffer.bufferedDurationMs(), 0.0);
    EXPECT_TRUE(buffer.front().empty());
}

TEST(AudioBuffer, IsPrimedAgain) {
    AudioBuffer buffer(stereo48k());
    buffer.consumePart();
    buffer.prime();
    EXPECT_EQ(buffer.partSize(), 76800U);
    EXPECT_TRUE(buffer.consumePart());
}

TEST(AudioBuffer, CountsDuration) {
    AudioBuffer buffer(stereo48k());
    const auto bytes = counting(1920);
    buffer.append(bytes.data(), bytes.size());
    buffer.append(bytes.data(), bytes.size());
    EXPECT_DOUBLE_EQ(buffer.bufferedDurationMs(), 20.0);
}

TEST(AudioBuffer, ABlockBelowOneSampleFrameAddsNothing) {
    LogCapture log;
    AudioBuffer buffer(stereo48k());
    const auto bytes = counting(3);
    buffer.append(bytes.data(), bytes.size());
    EXPECT_EQ(buffer.bufferedDurationMs(), 0.0);
    EXPECT_EQ(buffer.bufferedBytes(), 3U);
    EXPECT_TRUE(log.contains("ko_player::details::frameDuration: ivalid frame sample rate: 0"));
}

TEST(FrameDuration, LooksAtTheSamplesOnly) {
    LogCapture log;
    EXPECT_DOUBLE_EQ(frameDuration(1024, 48000), 1024 * 1000.0 / 48000);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(frameDuration(-5, 48000), 0.0);
    EXPECT_TRUE(log.contains("ko_player::details::frameDuration: ivalid frame sample rate: -5"));
}

} // namespace
} // namespace ko_player::details
