#include "sound/VolumeRule.h"

#include <gmock/gmock.h>

#include <climits>

namespace {

struct VolumeRow {
    int percent;
    double current;
    double expected;
};

void PrintTo(const VolumeRow& row, std::ostream* out) {
    *out << row.percent << "% at " << row.current;
}

class VolumeRuleTest : public ::testing::TestWithParam<VolumeRow> {};

TEST_P(VolumeRuleTest, IsTheFractionUnlessTheOutputHasItAlready) {
    EXPECT_DOUBLE_EQ(outputVolume(GetParam().percent, GetParam().current), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Volumes, VolumeRuleTest,
                         ::testing::Values(VolumeRow{50, 1.0, 0.5}, VolumeRow{0, 1.0, 0.0},
                                           VolumeRow{100, 0.5, 1.0},
                                           VolumeRow{100, 1.0, 0.99}, // equal: nudged
                                           VolumeRow{50, 0.5, 0.49}, VolumeRow{50, 0.5 + 1e-14, 0.49},
                                           VolumeRow{50, 0.5 + 1e-9, 0.5}, // nearly equal is not
                                           VolumeRow{0, 0.0, 0.0},         // the nudge is clamped
                                           VolumeRow{0, 1e-15, 0.0}, VolumeRow{250, 0.5, 1.0},
                                           VolumeRow{-10, 0.5, 0.0}, VolumeRow{INT_MAX, 0.5, 1.0},
                                           VolumeRow{INT_MIN, 0.5, 0.0}));

} // namespace
