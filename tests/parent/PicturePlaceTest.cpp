#include "parent/PicturePlace.h"

#include <gtest/gtest.h>

namespace mediaworker::parent {
namespace {

struct FitCase {
    QSize picture;
    QSize area;
    QRect expected;
};

class Fitted : public testing::TestWithParam<FitCase> {};

TEST_P(Fitted, KeepsTheAspectInTheMiddle) {
    const auto& [picture, area, expected] = GetParam();
    EXPECT_EQ(fitted(picture, area), expected);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Fitted,
                         testing::Values(FitCase{{1920, 1080}, {1920, 1080}, {0, 0, 1920, 1080}},
                                         FitCase{{1920, 1080}, {960, 600}, {0, 30, 960, 540}},
                                         FitCase{{1920, 1080}, {1000, 270}, {260, 0, 480, 270}},
                                         FitCase{{320, 180}, {1280, 800}, {0, 40, 1280, 720}},
                                         FitCase{{100, 400}, {400, 400}, {150, 0, 100, 400}},
                                         FitCase{{4096, 2}, {100, 100}, {0, 49, 100, 1}},
                                         FitCase{{0, 0}, {100, 100}, {}}, FitCase{{100, 100}, {0, 50}, {}}));

struct ScaledCase {
    QSizeF area;
    qreal ratio;
    QRectF expected;
};

class FittedOnAScreen : public testing::TestWithParam<ScaledCase> {};

TEST_P(FittedOnAScreen, FillsItsPixels) {
    const auto& [area, ratio, expected] = GetParam();
    const QRectF place = fitted(QSize(320, 180), area, ratio);
    EXPECT_NEAR(place.left(), expected.left(), 1e-9);
    EXPECT_NEAR(place.top(), expected.top(), 1e-9);
    EXPECT_NEAR(place.width(), expected.width(), 1e-9);
    EXPECT_NEAR(place.height(), expected.height(), 1e-9);
}

INSTANTIATE_TEST_SUITE_P(Ratios, FittedOnAScreen,
                         testing::Values(ScaledCase{{320, 200}, 1, {0, 10, 320, 180}},
                                         ScaledCase{{160, 100}, 2, {0, 5, 160, 90}},
                                         // 161 × 99 of these are 322 × 198 pixels: the picture has 322 × 181
                                         ScaledCase{{161, 99}, 2, {0, 4, 161, 90.5}},
                                         // 150 × 75 pixels
                                         ScaledCase{{100, 50}, 1.5, {8 / 1.5, 0, 133 / 1.5, 50}},
                                         ScaledCase{{100, 50}, 0, {}}, ScaledCase{{100, 50}, -1, {}},
                                         ScaledCase{{0, 50}, 2, {}}));

} // namespace
} // namespace mediaworker::parent
