#include "player/BufferingRules.h"

#include <gtest/gtest.h>

#include <limits>

namespace ko_player {
namespace {

using Action = BufferingRules::Action;
using Mode = BufferingRules::Mode;

BufferingRules buffering() {
    BufferingRules rules;
    rules.enable(true);
    EXPECT_TRUE(rules.begin());
    return rules;
}

BufferingRules playingSince(std::int64_t l) {
    BufferingRules rules = buffering();
    EXPECT_TRUE(rules.finish(l));
    return rules;
}

TEST(BufferingRules, OffNeitherBeginsNorFinishes) {
    BufferingRules rules;
    EXPECT_EQ(rules.afterPush({.newestMs = 0, .shownMs = 0}), Action::None);
    EXPECT_EQ(rules.afterPush({.newestMs = 90000, .shownMs = 0}), Action::None);
    EXPECT_FALSE(rules.begin());
    EXPECT_FALSE(rules.finish(5000));
    EXPECT_EQ(rules.mode(), Mode::Off);
}

TEST(BufferingRules, TheStartWaitsForASecondOfVideo) {
    const BufferingRules rules = buffering();
    EXPECT_EQ(rules.afterPush({.newestMs = 999, .shownMs = 0}), Action::None);
    EXPECT_EQ(rules.afterPush({.newestMs = 1000, .shownMs = 0}), Action::Finish);
}

TEST(BufferingRules, LaterPeriodsWaitForHalfASecond) {
    BufferingRules rules = playingSince(1000);
    EXPECT_TRUE(rules.begin());
    EXPECT_EQ(rules.afterPush({.newestMs = 5499, .shownMs = 5000}), Action::None);
    EXPECT_EQ(rules.afterPush({.newestMs = 5500, .shownMs = 5000}), Action::Finish);
}

TEST(BufferingRules, BeginsWhenLittleIsLeft) {
    const BufferingRules rules = playingSince(0);
    EXPECT_EQ(rules.afterPush({.newestMs = 2100, .shownMs = 2000}), Action::None);
    EXPECT_EQ(rules.afterPush({.newestMs = 2099, .shownMs = 2000}), Action::Begin);
    EXPECT_EQ(rules.afterPush({.newestMs = 1500, .shownMs = 2000}), Action::Begin)
        << "shown ahead of what was pushed";
}

TEST(BufferingRules, DoesNotBeginBeforeTheGuard) {
    const BufferingRules rules = playingSince(8000);
    EXPECT_EQ(rules.afterPush({.newestMs = 8040, .shownMs = 8000}), Action::None);
    EXPECT_EQ(rules.afterPush({.newestMs = 8999, .shownMs = 8999}), Action::None);
    EXPECT_EQ(rules.afterPush({.newestMs = 9000, .shownMs = 9000}), Action::Begin);
}

TEST(BufferingRules, TheEndsOfTheRangeDoNotOverflow) {
    constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
    constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(playingSince(kMax).afterPush({.newestMs = kMax, .shownMs = kMax}), Action::Begin);
    EXPECT_EQ(buffering().afterPush({.newestMs = kMax, .shownMs = kMin}), Action::Finish);
    EXPECT_EQ(buffering().afterPush({.newestMs = kMin, .shownMs = kMax}), Action::None);
}

} // namespace
} // namespace ko_player
