#include "support/media/TestPicture.h"
#include "DecodeClip.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

namespace mediaworker::test {
namespace {

struct Size {
    int width;
    int height;
};

void PrintTo(const Size& size, std::ostream* out) {
    *out << size.width << 'x' << size.height;
}

/// A clip coded so hard that the blocks show.
Clip poorClip(int width, int height) {
    ClipSpec spec;
    spec.widthPx = width;
    spec.heightPx = height;
    spec.frames = 12;
    spec.firstFrameNumber = 0xABCDE0;
    spec.crf = 40;
    return encode(spec);
}

class NumberAfterScaling : public testing::TestWithParam<Size> {};

TEST_P(NumberAfterScaling, IsReadFromAPoorlyCodedPicture) {
    const auto pictures = decode(poorClip(320, 180), GetParam().width, GetParam().height);
    ASSERT_EQ(pictures.size(), 12U);
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        EXPECT_EQ(readFrameNumber(pictures[i].view()), 0xABCDE0 + static_cast<int>(i));
        EXPECT_LE(largestPatchError(pictures[i].view()), 40);
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, NumberAfterScaling,
                         testing::Values(Size{0, 0}, Size{160, 90}, Size{336, 180}, Size{320, 192},
                                         Size{641, 359}, Size{1920, 1080}));

class NumberInSize : public testing::TestWithParam<Size> {};

TEST_P(NumberInSize, IsReadAndTheColoursAreClose) {
    const auto pictures = decode(poorClip(GetParam().width, GetParam().height));
    ASSERT_EQ(pictures.size(), 12U);
    EXPECT_EQ(readFrameNumber(pictures[11].view()), 0xABCDE0 + 11);
    EXPECT_LE(largestPatchError(pictures[11].view()), 24);
}

INSTANTIATE_TEST_SUITE_P(Sizes, NumberInSize,
                         testing::Values(Size{176, 144}, Size{704, 576}, Size{1280, 720}, Size{1920, 1080},
                                         Size{360, 640}));

TEST(TestPicture, MadeOfTwoPicturesHasNoNumber) {
    auto pictures = decode(poorClip(320, 180));
    DecodedPicture torn = pictures.at(3);
    const auto half = static_cast<std::ptrdiff_t>(torn.bgra.size() / 2);
    std::copy(pictures.at(4).bgra.begin() + half, pictures.at(4).bgra.end(), torn.bgra.begin() + half);

    const PictureNumbers numbers = readFrameNumbers(torn.view());
    EXPECT_EQ(numbers.top, 0xABCDE3);
    EXPECT_EQ(numbers.bottom, 0xABCDE4);
    EXPECT_EQ(readFrameNumber(torn.view()), std::nullopt);
}

TEST(TestPicture, ABlendOfTwoPicturesHasNoNumber) {
    auto pictures = decode(poorClip(320, 180));
    DecodedPicture blend = pictures.at(3);
    for (std::size_t i = 0; i < blend.bgra.size(); ++i) {
        blend.bgra[i] = static_cast<std::uint8_t>((blend.bgra[i] + pictures.at(4).bgra[i]) / 2);
    }
    EXPECT_EQ(readFrameNumber(blend.view()), std::nullopt);
}

TEST(TestPicture, OneEvenColourHasNoNumber) {
    for (const int level : {0, 16, 128, 255}) {
        const std::vector<std::uint8_t> bgra(320 * 180 * 4, static_cast<std::uint8_t>(level));
        EXPECT_EQ(readFrameNumber({bgra.data(), 320, 180, 320 * 4}), std::nullopt) << level;
    }
}

TEST(TestPicture, SwappedRedAndBlueShows) {
    DecodedPicture picture = decode(poorClip(320, 180)).at(0);
    for (std::size_t i = 0; i < picture.bgra.size(); i += 4) {
        std::swap(picture.bgra[i], picture.bgra[i + 2]);
    }
    EXPECT_EQ(readFrameNumber(picture.view()), 0xABCDE0);
    EXPECT_GT(largestPatchError(picture.view()), 200);
}

TEST(TestPicture, RefusesSizesTooSmallToRead) {
    EXPECT_THROW(TestPicture(159, 120), std::invalid_argument);
    EXPECT_THROW(TestPicture(320, 87), std::invalid_argument);
}

TEST(TestPicture, NoiseLeavesNumberAndPatchesAlone) {
    TestPicture plain(320, 180);
    TestPicture grainy(320, 180, 64);
    plain.draw(77);
    grainy.draw(77);
    const std::ptrdiff_t band = 320 * (3 * 180 / 11);
    EXPECT_TRUE(std::equal(plain.bytes().begin(), plain.bytes().begin() + band, grainy.bytes().begin()));
    EXPECT_FALSE(std::equal(plain.bytes().begin(), plain.bytes().end(), grainy.bytes().begin()));
}

} // namespace
} // namespace mediaworker::test
