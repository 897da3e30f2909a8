#include "records/MediaParams.h"
#include "records/Metadata.h"
#include "records/ResourceGuard.h"

#include <gtest/gtest.h>

#include <sstream>

namespace ko_player {
namespace {

TEST(ResourceGuard, AcquiresAndReleasesOnce) {
    int acquired = 0;
    int released = 0;
    {
        ResourceGuard guard([&] { ++acquired; }, [&] { ++released; });
        EXPECT_EQ(acquired, 1);
        const ResourceGuard moved(std::move(guard));
        EXPECT_EQ(released, 0);
    }
    EXPECT_EQ(acquired, 1);
    EXPECT_EQ(released, 1);
}

TEST(ResourceGuard, AssignmentReleasesWhatItHeld) {
    int first = 0;
    int second = 0;
    ResourceGuard guard([&] { ++first; });
    guard = ResourceGuard([&] { ++second; });
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 0);
    guard = ResourceGuard();
    EXPECT_EQ(second, 1);
}

TEST(VideoParams, AreWrittenAsTheLogShowsThem) {
    std::ostringstream out;
    out << VideoParams{28, 704, 576, {12, 11}};
    EXPECT_EQ(out.str(), " fmt: 28, w: 704, h: 576, sar: 12/11");
}

TEST(Metadata, HasAPositionOnlyWithAPositiveValue) {
    EXPECT_FALSE(Metadata{}.hasPosition());
    EXPECT_FALSE((Metadata{-5, 0, -1, 100}.hasPosition()));
    EXPECT_TRUE((Metadata{1, 0, 0, 0}.hasPosition()));
    EXPECT_TRUE((Metadata{0, 1, 0, 0}.hasPosition()));
    EXPECT_TRUE((Metadata{0, 0, 1, 0}.hasPosition()));
}

} // namespace
} // namespace ko_player
