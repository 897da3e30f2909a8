#include "queues/PlayerState.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace ko_player {
namespace {

TEST(VideoState, StartsAtZero) {
    const VideoState state(nullptr);
    EXPECT_EQ(state.newestPushedMs, 0);
    EXPECT_EQ(state.lastShownMs, 0);
}

TEST(VideoState, HasNoRecordOfPicturesUnlessItIsGivenOne) {
    EXPECT_EQ(VideoState(nullptr).shown, nullptr);
    EXPECT_EQ(PlayerState(nullptr).shown, nullptr);
}

TEST(ShownRecord, TellsTheLastPictureUntilItIsCleared) {
    ShownRecord record;
    EXPECT_EQ(record.last(), std::nullopt);
    const ShownPicture picture{40, base::TimePoint(std::chrono::seconds(1))};
    record.publish({0, {}});
    record.publish(picture);
    EXPECT_EQ(record.last(), picture);
    record.clear();
    EXPECT_EQ(record.last(), std::nullopt);
}

} // namespace
} // namespace ko_player
