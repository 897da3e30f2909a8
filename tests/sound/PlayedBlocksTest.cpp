#include "sound/PlayedBlocks.h"

#include <gtest/gtest.h>

namespace {

TEST(PlayedBlocks, HoldNothingAtFirst) {
    PlayedBlocks blocks(80, 400);
    EXPECT_EQ(blocks.held(400), 0);
}

TEST(PlayedBlocks, HoldWhatWasWrittenWhereItFillsThem) {
    PlayedBlocks blocks(80, 400);
    blocks.wrote(400);
    EXPECT_EQ(blocks.held(0), 400);
    EXPECT_EQ(blocks.held(160), 240);
    blocks.wrote(160);
    EXPECT_EQ(blocks.held(0), 400);
    EXPECT_EQ(blocks.held(400), 0);
}

TEST(PlayedBlocks, AreTakenWholeByAPart) {
    PlayedBlocks blocks(80, 400);
    blocks.wrote(100); // 80, 20
    blocks.wrote(100); // 80, 20
    EXPECT_EQ(blocks.held(80), 200);
    EXPECT_EQ(blocks.held(160), 120);
    EXPECT_EQ(blocks.held(240), 100);
    EXPECT_EQ(blocks.held(320), 20);
    blocks.wrote(6);
    EXPECT_EQ(blocks.held(240), 26);
    EXPECT_EQ(blocks.held(320), 6);
}

TEST(PlayedBlocks, AreNoMoreThanTheDeviceHasWhenNobodyAsks) {
    PlayedBlocks blocks(80, 400);
    for (int i = 0; i < 1000; ++i) {
        blocks.wrote(80);
        blocks.wrote(6);
    }
    EXPECT_EQ(blocks.held(0), 6 + 80 + 6 + 80 + 6);
}

TEST(PlayedBlocks, OfADeviceThatTellsNonsenseAreHarmless) {
    PlayedBlocks blocks(0, -1);
    blocks.wrote(-5);
    EXPECT_EQ(blocks.held(7), 0);
    blocks.wrote(3);
    EXPECT_EQ(blocks.held(-7), 1);
}

} // namespace
