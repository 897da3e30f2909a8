#include "stream/PictureGeometry.h"

extern "C" {
#include <libavutil/pixfmt.h>
}

#include <gmock/gmock.h>

#include <climits>

namespace {

struct GeometryRow {
    int width;
    int height;
    AVRational aspect;
    int outWidth;
    int outHeight;
    AspectRule rule;
};

void PrintTo(const GeometryRow& row, std::ostream* out) {
    *out << row.width << "x" << row.height << " " << row.aspect.num << "/" << row.aspect.den;
}

class PictureGeometryTest : public ::testing::TestWithParam<GeometryRow> {};

TEST_P(PictureGeometryTest, StretchesToSquarePixels) {
    const GeometryRow& row = GetParam();
    const PictureGeometry geometry = pictureGeometry({AV_PIX_FMT_YUV420P, row.width, row.height, row.aspect});
    EXPECT_EQ(geometry.params,
              (ko_player::VideoParams{AV_PIX_FMT_BGRA, row.outWidth, row.outHeight, row.aspect}));
    EXPECT_EQ(geometry.rule, row.rule);
}

constexpr auto kSquare = AspectRule::Square;
constexpr auto kStretched = AspectRule::Stretched;
constexpr auto kIgnored = AspectRule::Ignored;

INSTANTIATE_TEST_SUITE_P(
    Aspects, PictureGeometryTest,
    ::testing::Values(GeometryRow{1920, 1080, {0, 1}, 1920, 1080, kSquare},
                      GeometryRow{1920, 1080, {1, 0}, 1920, 1080, kSquare},
                      GeometryRow{1920, 1080, {1, 1}, 1920, 1080, kSquare},
                      GeometryRow{1920, 1080, {7, 7}, 1920, 1080, kSquare},
                      GeometryRow{704, 576, {12, 11}, 768, 576, kStretched},
                      GeometryRow{704, 576, {16, 15}, 752, 576, kStretched}, // 750.9: truncated, then up
                      GeometryRow{705, 576, {12, 11}, 784, 576, kStretched}, // 769.1
                      GeometryRow{704, 288, {1, 2}, 704, 576, kStretched},
                      GeometryRow{704, 289, {1, 2}, 704, 592, kStretched},
                      GeometryRow{100, 100, {2, 5}, 100, 256, kStretched}, // the narrowest
                      GeometryRow{100, 100, {3, 1}, 304, 100, kStretched}, // the widest
                      GeometryRow{100, 100, {1, 3}, 100, 100, kIgnored},
                      GeometryRow{100, 100, {399, 1000}, 100, 100, kIgnored},
                      GeometryRow{100, 100, {3001, 1000}, 100, 100, kIgnored},
                      GeometryRow{100, 100, {-4, 3}, 100, 100, kIgnored},
                      GeometryRow{16384, 16384, {INT_MAX, INT_MAX - 1}, 16384, 16384, kStretched},
                      GeometryRow{16384, 16384, {INT_MAX - 1, INT_MAX}, 16384, 16384, kStretched},
                      GeometryRow{INT_MAX, 16, {3, 1}, INT_MAX, 16, kIgnored},
                      GeometryRow{1, 1, {-1, -2}, 1, 1, kIgnored}));

} // namespace
