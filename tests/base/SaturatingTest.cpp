#include "base/Saturating.h"

#include <gmock/gmock.h>

namespace base {
namespace {

constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
constexpr auto kMax = std::numeric_limits<std::int64_t>::max();

TEST(Saturating, AddsAndStopsAtTheEnds) {
    EXPECT_EQ(addSaturated(2, -5), -3);
    EXPECT_EQ(addSaturated(kMax, 1), kMax);
    EXPECT_EQ(addSaturated(kMax, kMax), kMax);
    EXPECT_EQ(addSaturated(kMin, -1), kMin);
    EXPECT_EQ(addSaturated(kMin, kMin), kMin);
    EXPECT_EQ(addSaturated(kMax, kMin), -1);
    EXPECT_EQ(addSaturated(kMax - 1, 1), kMax);
}

TEST(Saturating, SubtractsAndStopsAtTheEnds) {
    EXPECT_EQ(subtractSaturated(2, -5), 7);
    EXPECT_EQ(subtractSaturated(0, kMin), kMax);
    EXPECT_EQ(subtractSaturated(-1, kMin), kMax);
    EXPECT_EQ(subtractSaturated(kMax, -1), kMax);
    EXPECT_EQ(subtractSaturated(kMin, 1), kMin);
    EXPECT_EQ(subtractSaturated(-2, kMax), kMin);
    EXPECT_EQ(subtractSaturated(-1, kMax), kMin);
    EXPECT_EQ(subtractSaturated(kMin, kMin), 0);
}

TEST(Saturating, TruncatesDoubles) {
    using Limits = std::numeric_limits<double>;
    EXPECT_EQ(toInt64Saturated(2.9), 2);
    EXPECT_EQ(toInt64Saturated(-2.9), -2);
    EXPECT_EQ(toInt64Saturated(1.4e12), 1'400'000'000'000);
    EXPECT_EQ(toInt64Saturated(9223372036854775808.0), kMax);
    EXPECT_EQ(toInt64Saturated(9223372036854774784.0), 9223372036854774784) << "the largest below 2^63";
    EXPECT_EQ(toInt64Saturated(-9223372036854775808.0), kMin);
    EXPECT_EQ(toInt64Saturated(-1e300), kMin);
    EXPECT_EQ(toInt64Saturated(Limits::infinity()), kMax);
    EXPECT_EQ(toInt64Saturated(-Limits::infinity()), kMin);
    EXPECT_EQ(toInt64Saturated(Limits::quiet_NaN()), 0);
}

} // namespace
} // namespace base
