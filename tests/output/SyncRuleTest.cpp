#include "output/SyncRule.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ostream>

namespace ko_player {
namespace {

using std::chrono::milliseconds;
using Action = SyncRule::Action;

const base::TimePoint kStart{std::chrono::hours(1)};

base::TimePoint at(double ms) {
    return kStart +
           std::chrono::duration_cast<base::nanoseconds>(std::chrono::duration<double, std::milli>(ms));
}

/// Pictures of 25 a second whose stamp 0 is shown at time 0.
ShownPicture pictureAt(double ms) {
    const auto shownMs = static_cast<std::int64_t>(ms) / 40 * 40;
    return {shownMs, at(static_cast<double>(shownMs))};
}

struct FirstPart {
    const char* name;
    double stampMs;
    double nowMs; ///< the first picture, with stamp 0, was shown at 0; below 0: none was
    double heldMs;
    Action action;
    double ms = 0;
};

void PrintTo(const FirstPart& row, std::ostream* out) {
    *out << row.name;
}

class SyncRuleFirstPart : public testing::TestWithParam<FirstPart> {};

TEST_P(SyncRuleFirstPart, IsPutRightAtOnce) {
    const FirstPart& row = GetParam();
    SyncRule rule;
    rule.restart(at(-50));
    SyncRule::Situation situation{.stampMs = row.stampMs, .now = at(row.nowMs), .heldMs = row.heldMs};
    if (row.nowMs >= 0) {
        situation.shown = ShownPicture{0, at(0)};
    }
    const auto decision = rule.next(situation);
    EXPECT_EQ(decision.action, row.action);
    EXPECT_NEAR(decision.ms, row.ms, 0.001);
}

INSTANTIATE_TEST_SUITE_P(
    SyncRule, SyncRuleFirstPart,
    testing::Values(FirstPart{"InStep", 5, 5, 0, Action::Write},
                    FirstPart{"HardlyLate", 0, 15, 0, Action::Write},
                    FirstPart{"Late", 0, 60, 0, Action::Skip, 60},
                    FirstPart{"LateByWhatTheDeviceHolds", 0, 10, 300, Action::Skip, 310},
                    FirstPart{"Early", 500, 10, 0, Action::Wait, 490},
                    FirstPart{"EarlyBehindWhatTheDeviceHolds", 500, 10, 300, Action::Wait, 190},
                    FirstPart{"StampsOfAnotherTime", 3'600'000, 10, 0, Action::WriteFree},
                    FirstPart{"PictureOfASlowStream", 900, 900, 0, Action::Write},
                    FirstPart{"PictureOfLongAgo", 2000, 2000, 0, Action::WriteFree},
                    FirstPart{"NoPictureYet", 0, -40, 0, Action::Wait, 190}),
    [](const auto& instance) { return instance.param.name; });

TEST(SyncRule, SoundDoesNotWaitForPicturesThatDoNotCome) {
    SyncRule rule;
    rule.restart(at(0));
    EXPECT_EQ(rule.next({.now = at(199)}).action, Action::Wait);
    EXPECT_EQ(rule.next({.now = at(200)}).action, Action::WriteFree);
    EXPECT_EQ(rule.next({.now = at(300)}).action, Action::WriteFree);
}

/// Feeds parts of 100 ms that would be heard so late, while pictures are shown as they should be.
class SyncRuleOnTheWay : public testing::Test {
protected:
    SyncRuleOnTheWay() {
        rule.restart(at(0));
        EXPECT_EQ(part(0).action, Action::Write);
    }

    SyncRule::Decision part(double lateMs) {
        nowMs_ += 100;
        return rule.next(
            {.stampMs = nowMs_ + 300 - lateMs, .shown = pictureAt(nowMs_), .now = at(nowMs_), .heldMs = 300});
    }
    /// How many parts come before the first that is not written; 100 where all are.
    int partsUntilCorrected(double lateMs) {
        for (int i = 0; i < 100; ++i) {
            last = part(lateMs);
            if (last.action != Action::Write) {
                return i;
            }
        }
        return 100;
    }

    SyncRule rule;
    SyncRule::Decision last;

private:
    double nowMs_ = 0;
};

TEST_F(SyncRuleOnTheWay, SmallDeviationsAreLeftAlone) {
    EXPECT_EQ(partsUntilCorrected(60), 100);
    EXPECT_EQ(partsUntilCorrected(-35), 100);
}

TEST_F(SyncRuleOnTheWay, ALargeOneIsCorrectedOnceItIsSure) {
    EXPECT_EQ(partsUntilCorrected(90), 4);
    EXPECT_EQ(last.action, Action::Skip);
    EXPECT_NEAR(last.ms, 90, 0.001);
    EXPECT_EQ(partsUntilCorrected(-60), 4);
    EXPECT_EQ(last.action, Action::Wait);
    EXPECT_NEAR(last.ms, 60, 0.001);
}

TEST_F(SyncRuleOnTheWay, ASinglePictureOutOfTimeIsNoReason) {
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(part(i % 5 == 0 ? 400 : 0).action, Action::Write) << i;
    }
}

TEST_F(SyncRuleOnTheWay, ASlowDriftIsTakenUpBySpeed) {
    EXPECT_EQ(rule.speedUpPpm(), 0);
    EXPECT_EQ(partsUntilCorrected(30), 100);
    EXPECT_GT(rule.speedUpPpm(), 300);
    EXPECT_LT(rule.speedUpPpm(), 1000);
    EXPECT_EQ(partsUntilCorrected(-30), 100);
    EXPECT_LT(rule.speedUpPpm(), -300);
    rule.restart(at(0));
    EXPECT_EQ(rule.speedUpPpm(), 0);
}

TEST_F(SyncRuleOnTheWay, NothingIsCorrectedWhilePicturesAreMissing) {
    for (int i = 0; i < 20; ++i) {
        const double now = 1000 + i * 100;
        EXPECT_EQ(rule.next({.stampMs = now + 1000, .shown = ShownPicture{0, at(0)}, .now = at(now)}).action,
                  Action::WriteFree);
    }
}

TEST(SyncRule, SoundThatIsPlayedAsItComesStaysWhereItSettles) {
    SyncRule rule({.late = 105, .lateAtBegin = 95, .aim = 60, .keepsWhatItFinds = true});
    rule.restart(at(0));
    for (int i = 1; i < 500; ++i) {
        const double now = 40.0 * i;
        const auto decision =
            rule.next({.stampMs = now + 60 - 80, .shown = pictureAt(now), .now = at(now), .heldMs = 60});
        ASSERT_EQ(decision.action, Action::Write) << i;
    }
    EXPECT_EQ(rule.speedUpPpm(), 0);
}

TEST(SyncRule, SoundFollowsPicturesThatHurry) {
    SyncRule rule;
    rule.restart(at(0));
    double stampMs = 0;
    double worst = 0;
    double skippedMs = 0;
    for (int i = 0; i < 100; ++i) { // pictures run a quarter faster than time
        const double now = 100.0 * i;
        const double pictureMs = 1.25 * now;
        const ShownPicture shown{static_cast<std::int64_t>(pictureMs), at(now)};
        const double heardMs = 1.25 * (now + 400) - stampMs; // late by
        const auto decision = rule.next({.stampMs = stampMs, .shown = shown, .now = at(now), .heldMs = 400});
        if (i > 10) {
            worst = std::max(worst, std::abs(heardMs));
        }
        if (decision.action == Action::Skip) {
            stampMs += decision.ms;
            skippedMs += decision.ms;
        } else if (decision.action == Action::Wait) {
            stampMs -= decision.ms;
        }
        stampMs += 100;
    }
    EXPECT_LT(worst, 125);
    EXPECT_GT(skippedMs, 2000);
}

} // namespace
} // namespace ko_player
