#include "support/servers/PulseSink.h"
#include "support/servers/Tone.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <thread>

namespace mediaworker::test {
namespace {

using namespace std::chrono_literals;

std::vector<std::int16_t> sine(double hz, double level, int count, int rate) {
    std::vector<std::int16_t> samples;
    for (int i = 0; i < count; ++i) {
        samples.push_back(
            static_cast<std::int16_t>(level * 32767 * std::sin(2 * std::numbers::pi * hz * i / rate)));
    }
    return samples;
}

TEST(Tone, MeasuresLevelAndFrequency) {
    const auto samples = sine(440, 0.5, 44100, 44100);
    EXPECT_NEAR(toneLevel(samples, 44100, 440), 0.5, 0.005);
    EXPECT_LT(toneLevel(samples, 44100, 880), 0.01);
    EXPECT_NEAR(rms(samples), 0.5 * std::numbers::sqrt2 / 2, 0.005);
    EXPECT_NEAR(dominantFrequency(samples, 44100), 440, 1);
}

TEST(Tone, IsFoundBehindSilence) {
    std::vector<std::int16_t> samples(22050);
    const auto tone = sine(440, 0.5, 22050, 44100);
    samples.insert(samples.end(), tone.begin(), tone.end());
    EXPECT_NEAR(dominantFrequency(samples, 44100), 440, 2);
}

TEST(Tone, IsSteadyThoughItSkips) {
    auto samples = sine(440, 0.5, 22050, 44100);
    samples.insert(samples.end(), 441, 0);
    const auto rest = sine(440, 0.5, 22050, 44100); // four tenths of a period too late
    samples.insert(samples.end(), rest.begin(), rest.end());
    EXPECT_LT(toneLevel(samples, 44100, 440), 0.4);
    EXPECT_NEAR(steadyToneLevel(samples, 44100, 440), 0.5, 0.01);
    EXPECT_EQ(steadyToneLevel({}, 44100, 440), 0);
}

TEST(Tone, FindsNothingInSilence) {
    const std::vector<std::int16_t> silence(44100);
    EXPECT_EQ(dominantFrequency(silence, 44100), 0);
    EXPECT_EQ(rms(silence), 0);
    EXPECT_EQ(toneLevel({}, 44100, 440), 0);
}

TEST(PulseSink, RecordsWhatIsPlayed) {
    PulseSink sink;
    EXPECT_EQ(sink.playingStreams(), 0);
    ChildProcess player({.command = {"ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                                     "aevalsrc=0.5*sin(2*PI*700*t):s=44100", "-f", "pulse", "test"},
                         .environment = sink.environment()});
    for (int i = 0; i < 200 && sink.playingStreams() == 0; ++i) {
        std::this_thread::sleep_for(20ms);
    }
    ASSERT_EQ(sink.playingStreams(), 1);
    std::this_thread::sleep_for(500ms);
    const auto samples = sink.record(1000ms);
    ASSERT_GT(samples.size(), 30000U);
    EXPECT_NEAR(dominantFrequency(samples, PulseSink::kRate), 700, 2);
    // A busy machine leaves gaps.
    EXPECT_GT(toneLevel(samples, PulseSink::kRate, 700), 0.25);
    EXPECT_LT(toneLevel(samples, PulseSink::kRate, 700), 0.55);
}

TEST(PulseSink, RecordsSilenceWhenNobodyPlays) {
    PulseSink sink;
    const auto samples = sink.record(300ms);
    EXPECT_GT(samples.size(), 4000U);
    EXPECT_EQ(rms(samples), 0);
}

} // namespace
} // namespace mediaworker::test
