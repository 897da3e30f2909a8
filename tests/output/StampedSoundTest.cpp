#include "output/StampedSound.h"

extern "C" {
#include <libavutil/samplefmt.h>
}

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace ko_player::details {
namespace {

constexpr int kRate = 8000; // 8 samples a millisecond

AudioParams mono(int format = AV_SAMPLE_FMT_S16) {
    AudioParams params;
    params.format = format;
    params.sampleRate = kRate;
    params.channels = 1;
    return params;
}

class StampedSoundTest : public testing::Test {
protected:
    void append(int ms, std::int64_t stampMs, double hz = 0) {
        std::vector<std::int16_t> samples(static_cast<std::size_t>(ms * kRate / 1000), 1000);
        for (std::size_t i = 0; hz > 0 && i < samples.size(); ++i) {
            samples[i] = static_cast<std::int16_t>(
                10000 * std::sin(2 * std::numbers::pi * hz * static_cast<double>(written_ + i) / kRate));
        }
        written_ += samples.size();
        sound.append(reinterpret_cast<const std::uint8_t*>(samples.data()), samples.size() * 2, stampMs);
    }
    std::vector<std::int16_t> take(double ms) { return toSamples(sound.take(ms)); }
    static std::vector<std::int16_t> toSamples(std::span<const std::uint8_t> bytes) {
        std::vector<std::int16_t> samples(bytes.size() / 2);
        std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
        return samples;
    }

    StampedSound sound{mono()};

private:
    std::size_t written_ = 0;
};

TEST_F(StampedSoundTest, KnowsTheStampOfTheNextSample) {
    EXPECT_EQ(sound.stampMs(), 0);
    append(40, 1000);
    append(40, 1040);
    EXPECT_EQ(sound.durationMs(), 80);
    EXPECT_EQ(sound.stampMs(), 1000);
    EXPECT_EQ(take(30).size(), 240U);
    EXPECT_EQ(sound.stampMs(), 1030);
    EXPECT_EQ(take(30).size(), 240U);
    EXPECT_EQ(sound.stampMs(), 1060);
    EXPECT_EQ(take(30).size(), 160U);
    EXPECT_TRUE(sound.empty());
}

TEST_F(StampedSoundTest, TakesNoMoreThanUpToABreakInTheStamps) {
    append(40, 1000);
    append(40, 1045); // stamps are never exact
    append(40, 1200);
    EXPECT_EQ(take(200).size(), 640U);
    EXPECT_EQ(sound.stampMs(), 1200);
}

TEST_F(StampedSoundTest, ALongWayTakenInOneStepLosesNothing) {
    append(40, 0);
    EXPECT_EQ(take(1e9).size(), 320U);
    append(40, 40);
    EXPECT_EQ(take(0).size(), 1U) << "at least a sample, or nothing would go on";
}

TEST_F(StampedSoundTest, SkipsWhatHasNotComeYet) {
    append(40, 0);
    sound.skip(100);
    EXPECT_TRUE(sound.empty());
    append(40, 40);
    EXPECT_TRUE(sound.empty());
    append(40, 80);
    EXPECT_NEAR(sound.durationMs(), 20, 0.2);
    EXPECT_NEAR(sound.stampMs(), 100, 0.2);
}

/// The largest step between neighbours.
int steepest(const std::vector<std::int16_t>& samples) {
    int result = 0;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        result = std::max(result, std::abs(samples[i] - samples[i - 1]));
    }
    return result;
}

TEST_F(StampedSoundTest, ACutInAToneIsNotHeard) {
    append(400, 0, 210);
    std::vector<std::int16_t> heard = take(50);
    const int ordinary = steepest(heard);
    sound.skip(100.7);
    EXPECT_NEAR(sound.stampMs(), 150.7, 5);
    const auto after = take(100);
    heard.insert(heard.end(), after.begin(), after.end());
    EXPECT_LE(steepest(heard), ordinary + ordinary / 10);
    EXPECT_GT(*std::max_element(after.begin() + 20, after.begin() + 60), 9000) << "nor does it get quieter";
}

TEST_F(StampedSoundTest, SoundFadesInAfterSilence) {
    append(40, 0);
    const auto silence = toSamples(sound.silence(10));
    EXPECT_EQ(silence, std::vector<std::int16_t>(80, 0));
    const auto after = take(40);
    EXPECT_LT(after[0], 100);
    EXPECT_LT(steepest(after), 100);
    EXPECT_EQ(after.back(), 1000);
}

TEST_F(StampedSoundTest, SoundThatComesAfterSilenceFadesInAsWell) {
    static_cast<void>(sound.silence(10));
    append(40, 0);
    EXPECT_LT(take(40)[0], 100);
}

TEST_F(StampedSoundTest, DropsWhatNobodyHears) {
    append(40, 0);
    sound.drop(30);
    EXPECT_EQ(sound.stampMs(), 30);
    sound.drop(30);
    EXPECT_TRUE(sound.empty());
}

TEST(StampedSound, OtherFormatsAreCutHard) {
    StampedSound sound(mono(AV_SAMPLE_FMT_FLT));
    const std::vector<float> samples(800, 0.5F);
    sound.append(reinterpret_cast<const std::uint8_t*>(samples.data()), samples.size() * sizeof(float), 0);
    sound.skip(50);
    EXPECT_EQ(sound.stampMs(), 50);
    float first = 0;
    std::memcpy(&first, sound.take(10).data(), sizeof(first));
    EXPECT_EQ(first, 0.5F);
}

TEST(StampedSound, RefusesParametersWithoutASize) {
    EXPECT_THROW(StampedSound(AudioParams{}), std::logic_error);
}

} // namespace
} // namespace ko_player::details
