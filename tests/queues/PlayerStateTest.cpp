#include "queues/PlayerState.h"

#include <gtest/gtest.h>

namespace ko_player {
namespace {

TEST(VideoState, StartsAtZero) {
    const VideoState state(nullptr);
    EXPECT_EQ(state.newestPushedMs, 0);
    EXPECT_EQ(state.lastShownMs, 0);
}

} // namespace
} // namespace ko_player
