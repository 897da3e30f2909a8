#include "output/AudioSwr.h"
#include "Frames.h"

extern "C" {
#include <libavutil/error.h>
}

#include <gtest/gtest.h>

namespace ko_player {
namespace {

using mediaworker::test::makeSound;

AudioParams s16(int rate, int channels) {
    AudioParams out;
    out.format = AV_SAMPLE_FMT_S16;
    out.sampleRate = rate;
    out.channels = channels;
    out.channelLayout = channels == 1 ? AV_CH_LAYOUT_MONO : AV_CH_LAYOUT_STEREO;
    return out;
}

TEST(AudioSwr, PassesSoundInTheOutputFormatThroughWithoutACopy) {
    AudioSwr converter(s16(8000, 2));
    const auto sound = makeSound(0, 100, 8000, 2);
    const auto [size, bytes] = converter.convert(*sound->get());
    EXPECT_EQ(size, 400);
    EXPECT_EQ(bytes, (*sound)->data[0]);
}

TEST(AudioSwr, KeepsTheResamplerOnceItWasNeeded) {
    AudioSwr converter(s16(8000, 1));
    const auto planar = makeSound(0, 800, 8000, 1, AV_SAMPLE_FMT_FLTP);
    EXPECT_GT(converter.convert(*planar->get()).first, 0);
    const auto matching = makeSound(100, 800);
    const auto [size, bytes] = converter.convert(*matching->get());
    EXPECT_GT(size, 0);
    EXPECT_NE(bytes, (*matching)->data[0]);
}

TEST(AudioSwr, ResamplesToTheOutputRateAndChannels) {
    AudioSwr converter(s16(48000, 2));
    int total = 0;
    for (int i = 0; i < 20; ++i) {
        const auto [size, bytes] = converter.convert(*makeSound(i * 100, 800, 8000, 1)->get());
        ASSERT_NE(bytes, nullptr);
        total += size;
    }
    const int exact = 20 * 4800 * 4;
    EXPECT_LE(total, exact);
    EXPECT_GE(total, exact - 256 * 4) << "the resampler holds back no more than its margin";
}

TEST(AudioSwr, TakesTheDefaultLayoutWhereTheFramesLayoutSaysNothing) {
    AudioSwr converter(s16(8000, 2));
    const auto sound = makeSound(0, 100, 8000, 2);
    AVChannelLayout& layout = (*sound)->ch_layout;
    layout.order = AV_CHANNEL_ORDER_UNSPEC;
    layout.u.mask = 0;
    const auto [size, bytes] = converter.convert(*sound->get());
    EXPECT_EQ(size, 400);
    EXPECT_EQ(bytes, (*sound)->data[0]) << "two channels are stereo, which is the output format";
}

TEST(AudioSwr, RefusesFramesOfRatesThatNothingHas) {
    AudioSwr converter(s16(8000, 1));
    for (const int rate : {0, 1, 4, 3999, 192'001, 1'000'000'000}) {
        const auto [code, none] = converter.convert(*makeSound(0, 1024, rate)->get());
        EXPECT_EQ(code, AVERROR(EINVAL)) << rate;
        EXPECT_EQ(none, nullptr) << rate;
    }
    EXPECT_GT(converter.convert(*makeSound(0, 1024, 4000)->get()).first, 0);
    EXPECT_GT(converter.convert(*makeSound(0, 1024, 192'000)->get()).first, 0);
}

TEST(AudioSwr, RefusesAFrameThatAChangeOfRateWouldMakeHuge) {
    AudioSwr converter(s16(192'000, 2));
    const auto [code, none] = converter.convert(*makeSound(0, 100'000, 4000, 2)->get());
    EXPECT_EQ(code, AVERROR(EINVAL)) << "19 MB";
    EXPECT_EQ(none, nullptr);
    EXPECT_GT(converter.convert(*makeSound(0, 65'535, 4000, 2)->get()).first, 0);
}

TEST(AudioSwr, ReportsFailureAndTriesAgainWithTheNextFrame) {
    AudioSwr converter(s16(8000, 1));
    const auto broken = makeSound(0, 100);
    (*broken)->format = 9999;
    for (int i = 0; i < 2; ++i) {
        const auto [code, none] = converter.convert(*broken->get());
        EXPECT_LT(code, 0);
        EXPECT_EQ(none, nullptr);
    }
    const auto good = makeSound(0, 100);
    const auto [size, bytes] = converter.convert(*good->get());
    EXPECT_EQ(size, 200);
    EXPECT_EQ(bytes, (*good)->data[0]) << "the failures left it without a resampler";
    (*broken)->format = AV_SAMPLE_FMT_S16;
}

TEST(AudioSwr, RefusesARateOfZero) {
    AudioSwr converter(s16(8000, 1));
    EXPECT_GT(converter.convert(*makeSound(0, 100, 8000, 1, AV_SAMPLE_FMT_FLTP)->get()).first, 0);
    const auto sound = makeSound(0, 100);
    (*sound)->sample_rate = 0;
    const auto [code, none] = converter.convert(*sound->get());
    EXPECT_EQ(code, AVERROR(EINVAL));
    EXPECT_EQ(none, nullptr);
}

TEST(AudioSwr, RefusesToPassPlanarChannelsThroughAsOneBlock) {
    AudioParams out = s16(8000, 2);
    out.format = AV_SAMPLE_FMT_S16P;
    AudioSwr converter(out);
    EXPECT_EQ(converter.convert(*makeSound(0, 100, 8000, 2, AV_SAMPLE_FMT_S16P)->get()).second, nullptr);
}

TEST(AudioSwr, FollowsAFormatThatChanges) {
    AudioSwr converter(s16(48000, 2));
    EXPECT_GT(converter.convert(*makeSound(0, 800, 8000, 1)->get()).first, 0);
    EXPECT_GT(converter.convert(*makeSound(0, 1024, 44100, 2, AV_SAMPLE_FMT_FLTP)->get()).first, 0);
    EXPECT_GT(converter.convert(*makeSound(0, 1024, 48000, 6, AV_SAMPLE_FMT_FLTP)->get()).first, 0);
}

TEST(AudioSwr, PlaysFasterOrSlowerByMillionths) {
    for (const int ppm : {2000, -2000, 100}) {
        AudioSwr converter(s16(8000, 1));
        converter.setSpeedUp(ppm);
        std::int64_t samples = 0;
        for (int i = 0; i < 1000; ++i) {
            const auto [size, bytes] = converter.convert(*makeSound(i * 100, 800)->get());
            ASSERT_GT(size, 0);
            samples += size / 2;
        }
        EXPECT_NEAR(static_cast<double>(samples), 800'000 * (1 - ppm / 1e6), 40) << ppm;
    }
}

TEST(AudioSwr, SoundIsNotTouchedBeforeTheSpeedChanges) {
    AudioSwr converter(s16(8000, 1));
    converter.setSpeedUp(0);
    const auto sound = makeSound(0, 800);
    EXPECT_EQ(converter.convert(*sound->get()).second, (*sound)->data[0]);
}

} // namespace
} // namespace ko_player
