#include "Usage.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace mediaworker::soak {
namespace {

std::vector<Usage> watched(double seconds, double mbPerHour) {
    std::vector<Usage> usage;
    for (double at = 0; at <= seconds; at += 5) {
        usage.push_back({at, 40 + mbPerHour * at / 3600, 20, 9});
    }
    return usage;
}

TEST(Usage, OfThisProcessIsToldAndOfNoneIsNothing) {
    const Usage own = usageOf(::getpid(), 3);
    EXPECT_EQ(own.seconds, 3);
    EXPECT_GT(own.memoryMb, 1);
    EXPECT_GE(own.descriptors, 3);
    EXPECT_GE(own.threads, 1);
    const Usage none = usageOf(-1, 4);
    EXPECT_EQ(none.memoryMb, 0);
    EXPECT_EQ(none.threads, 0);
}

TEST(Growth, IsWhatTheTrendSaysPerHour) {
    for (const double mbPerHour : {0.0, 6.0, 600.0, -6.0}) {
        const Growth growth = growthOf(watched(600, mbPerHour));
        ASSERT_GT(growth.hours, 0.09);
        EXPECT_NEAR(growth.memoryMb / growth.hours, mbPerHour, 0.1 * std::abs(mbPerHour) + 0.01);
        EXPECT_EQ(growth.descriptors, 0);
    }
}

TEST(Growth, IsNotMadeByPeaksOrByTheStart) {
    std::vector<Usage> usage = watched(600, 0);
    usage.front().memoryMb = 1;
    usage.back().memoryMb = 900;
    usage[usage.size() - 10].descriptors = 500;
    const Growth growth = growthOf(usage);
    EXPECT_NEAR(growth.memoryMb, 0, 0.01);
    EXPECT_EQ(growth.descriptors, 0);
    EXPECT_TRUE(isWithinBounds(growth));
}

TEST(Growth, OfEachKindHasABound) {
    for (auto [field, value] : {std::pair{&Usage::descriptors, 30}, std::pair{&Usage::threads, 30}}) {
        std::vector<Usage> usage = watched(600, 0);
        for (std::size_t i = usage.size() / 2; i < usage.size(); ++i) {
            usage[i].*field = value;
        }
        EXPECT_FALSE(isWithinBounds(growthOf(usage)));
    }
    EXPECT_FALSE(isWithinBounds(growthOf(watched(600, 200))));
}

TEST(Growth, OfAShortLifeTellsNothing) {
    EXPECT_EQ(growthOf({}).hours, 0);
    EXPECT_EQ(growthOf(watched(175, 1000)).hours, 0);
    EXPECT_EQ(growthText(growthOf({}), &Growth::memoryMb), "-");
}

TEST(Growth, IsToldPerHourAndForTheTimeWatched) {
    EXPECT_EQ(growthText({.hours = 0.5, .memoryMb = 1.26}, &Growth::memoryMb), "+2.5 (+1.3)");
    EXPECT_EQ(growthText({.hours = 2, .descriptors = -1}, &Growth::descriptors), "-0.5 (-1.0)");
}

} // namespace
} // namespace mediaworker::soak
