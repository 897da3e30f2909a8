#include "tools/ctl/SnapshotRule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <vector>

using namespace mediaworker::ctl;
using namespace std::chrono_literals;
using ::testing::ElementsAreArray;

TEST(CtlSnapshotRule, TakesPicturesByTheirTimeStamps) {
    constexpr qint64 kMin = std::numeric_limits<qint64>::min();
    constexpr qint64 kMax = std::numeric_limits<qint64>::max();
    struct Row {
        const char* what;
        std::chrono::milliseconds interval;
        std::vector<qint64> stampsMs;
        std::vector<qint64> takenMs;
    };
    for (const Row& row : {
             Row{"the first", 1s, {5000}, {5000}},
             Row{"each first one behind the interval", 100ms, {0, 40, 80, 120, 160, 200, 240}, {0, 120, 240}},
             Row{"exactly the interval", 80ms, {0, 40, 80, 120, 160}, {0, 80, 160}},
             Row{"every one", 1ms, {0, 40, 80}, {0, 40, 80}},
             Row{"a gap gives no more than one", 1s, {0, 10000, 10040}, {0, 10000}},
             Row{"anew from a jump back", 1s, {9000, 9040, 0, 40, 1000}, {9000, 0, 1000}},
             Row{"the same again is no jump", 1s, {0, 0, 0}, {0}},
             Row{"time stamps of any size", 1s, {kMin, kMax, kMin}, {kMin, kMax, kMin}},
         }) {
        SnapshotRule rule(row.interval);
        std::vector<qint64> taken;
        for (const qint64 stamp : row.stampsMs) {
            if (rule.take(stamp)) {
                taken.push_back(stamp);
            }
        }
        EXPECT_THAT(taken, ElementsAreArray(row.takenMs)) << row.what;
    }
}

TEST(CtlSnapshotRule, NumbersTheFiles) {
    SnapshotRule rule(1ms);
    ASSERT_TRUE(rule.take(5000));
    EXPECT_EQ(rule.fileName(), QStringLiteral("picture-0001-at-5000-ms.png"));
    for (int i = 1; i < 12345; ++i) {
        ASSERT_TRUE(rule.take(5000 + qint64{40} * i));
    }
    EXPECT_EQ(rule.fileName(), QStringLiteral("picture-12345-at-498760-ms.png"));
}
