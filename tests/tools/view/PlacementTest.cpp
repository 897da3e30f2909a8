#include "tools/view/Placement.h"

#include <gtest/gtest.h>

namespace mediaworker::view {

inline void PrintTo(const GridShape& shape, std::ostream* out) {
    *out << shape.rows << " x " << shape.columns;
}

namespace {

struct GridCase {
    int streams;
    GridShape expected;
};

class Grid : public testing::TestWithParam<GridCase> {};

TEST_P(Grid, IsTheSmallestOne) {
    EXPECT_EQ(gridShape(GetParam().streams), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Counts, Grid,
                         testing::Values(GridCase{0, {0, 0}}, GridCase{1, {1, 1}}, GridCase{2, {1, 2}},
                                         GridCase{3, {2, 2}}, GridCase{4, {2, 2}}, GridCase{5, {2, 3}},
                                         GridCase{6, {2, 3}}, GridCase{7, {3, 3}}, GridCase{9, {3, 3}},
                                         GridCase{10, {3, 4}}, GridCase{16, {4, 4}}, GridCase{17, {4, 5}}));

TEST(InitialPictureSize, IsThePicturesOwnUnlessTheScreenIsTooSmall) {
    EXPECT_EQ(initialPictureSize({1280, 720}, {1900, 1000}), QSize(1280, 720));
    EXPECT_EQ(initialPictureSize({1920, 1080}, {1920, 1080}), QSize(1920, 1080));
    EXPECT_EQ(initialPictureSize({3840, 2160}, {1920, 1000}), QSize(1777, 1000));
    EXPECT_EQ(initialPictureSize({1080, 1920}, {1920, 960}), QSize(540, 960));
}

TEST(Neighbour, IsWhereTheArrowLeads) {
    using enum Direction;
    const struct {
        int streams;
        int place;
        Direction direction;
        int expected;
    } cases[] = {
        // 0 1 2
        // 3 4
        {5, 0, Right, 1}, {5, 2, Right, 3}, {5, 4, Right, 4}, {5, 0, Left, 0}, {5, 3, Left, 2},
        {5, 0, Down, 3},  {5, 1, Down, 4},  {5, 2, Down, 2},  {5, 4, Up, 1},   {5, 1, Up, 1},
        {1, 0, Right, 0}, {1, 0, Down, 0},  {2, 0, Down, 0},  {2, 1, Left, 0}, {0, 0, Up, 0},
    };
    for (const auto& [streams, place, direction, expected] : cases) {
        EXPECT_EQ(neighbour(streams, place, direction), expected)
            << place << " of " << streams << ", " << static_cast<int>(direction);
    }
}

} // namespace
} // namespace mediaworker::view
