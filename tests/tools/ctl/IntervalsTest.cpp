#include "tools/ctl/Intervals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

using namespace mediaworker::ctl;
using namespace std::chrono_literals;
using ::testing::Optional;

TEST(CtlIntervals, HasNothingAtFirst) {
    EXPECT_EQ(Intervals().median(), std::nullopt);
    EXPECT_EQ(Intervals().longest(), std::nullopt);
}

TEST(CtlIntervals, GivesTheMiddleAndTheLongest) {
    struct Row {
        std::vector<std::chrono::nanoseconds> intervals;
        std::chrono::nanoseconds median;
        std::chrono::nanoseconds longest;
    };
    for (const Row& row : {
             Row{{40ms}, 40ms, 40ms},
             Row{{10ms, 50ms}, 50ms, 50ms},
             Row{{50ms, 10ms, 40ms}, 40ms, 50ms},
             Row{{40ms, 40ms, 40ms, 2s}, 40ms, 2s},
             Row{{39960us, 39940us, 40049us}, 40ms, 40ms}, // steps of 0.1 ms
             Row{{-1ms, -1ms, 1h}, 0ms, 1min},
         }) {
        Intervals intervals;
        for (const auto interval : row.intervals) {
            intervals.add(interval);
        }
        EXPECT_THAT(intervals.median(), Optional(row.median));
        EXPECT_THAT(intervals.longest(), Optional(row.longest));
    }
}
