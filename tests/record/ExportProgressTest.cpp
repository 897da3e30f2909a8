#include "record/ExportProgress.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace ko_player {
namespace {

struct Case {
    const char* name;
    int durationMs;
    std::vector<std::int64_t> dtsMs;
    std::string expected; ///< a percentage, '-' for nothing, "over"
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

class ExportProgressOf : public testing::TestWithParam<Case> {};

TEST_P(ExportProgressOf, TellsEachPercentageOnceAndFinishesInTime) {
    ExportProgress progress(GetParam().durationMs);
    std::string told;
    for (const std::int64_t dts : GetParam().dtsMs) {
        const auto step = progress.update(dts);
        EXPECT_FALSE(step.isOver && step.percent);
        told += told.empty() ? "" : " ";
        told += step.isOver ? "over" : step.percent ? std::to_string(*step.percent) : "-";
    }
    EXPECT_EQ(told, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Durations, ExportProgressOf,
    testing::Values(
        Case{"Half", 60000, {30000, 30000, 30599, 30600}, "50 - - 51"},
        Case{"NothingAtTheBegin", 60000, {0, 1, 599, 600}, "- - - 1"},
        Case{"Skipping", 60000, {600, 6000, 59999}, "1 10 99"}, Case{"FarBeyond", 60000, {75000}, "over"},
        Case{"JustBeyond", 60000, {70000, 70001}, "100 over"},
        Case{"ClampedAgainForEachPercentage", 60000, {60000, 60599, 60600, 70000}, "100 - 100 100"},
        Case{"OverAgain", 60000, {70001, 70001}, "over over"},
        Case{"NoDuration", 0, {0, 40, 10000, 10001}, "- - - over"},
        Case{"NegativeDuration", -1000, {0, 9000, 9001}, "- - over"},
        Case{"VeryNegativeDuration", -20000, {0}, "over"},
        Case{"OneMillisecond", 1, {0, 1, 2, 10001, 10002}, "- 100 100 100 over"},
        Case{"LongestOfTheCommandLine",
             std::numeric_limits<int>::max(),
             {21474836, 21474837, 2147483647, 4294967295},
             "- 1 100 over"},
        Case{"LargestStamp", 60000, {std::numeric_limits<std::int64_t>::max()}, "over"}),
    [](const auto& instance) { return instance.param.name; });

TEST(ExactLength, IsNeverOver) {
    ExportProgress progress(60000, LengthPolicy::Exact);
    EXPECT_EQ(progress.update(30000).percent, 50);
    for (const std::int64_t dts : {std::int64_t{70001}, std::int64_t{86'400'000}}) {
        const auto step = progress.update(dts);
        EXPECT_FALSE(step.isOver) << dts;
        EXPECT_EQ(step.percent, 100) << dts;
    }
    ExportProgress endless(0, LengthPolicy::Exact);
    EXPECT_FALSE(endless.update(36'000'000).isOver);
    EXPECT_FALSE(endless.update(36'000'000).percent);
    EXPECT_FALSE(endless.complete());
}

TEST(ExactLength, IsCompleteOnce) {
    ExportProgress progress(5000, LengthPolicy::Exact);
    EXPECT_EQ(progress.update(4960).percent, 99);
    EXPECT_EQ(progress.complete(), 100);
    EXPECT_FALSE(progress.complete());
    ExportProgress told(5000, LengthPolicy::Exact);
    EXPECT_EQ(told.update(5000).percent, 100);
    EXPECT_FALSE(told.complete());
}

TEST(ExactLength, EndsWhereTheDurationDoes) {
    EXPECT_EQ(ExportProgress(5000, LengthPolicy::Exact).exactEndMs(), 5000);
    EXPECT_EQ(ExportProgress(0, LengthPolicy::Exact).exactEndMs(), std::nullopt);
    EXPECT_EQ(ExportProgress(-5, LengthPolicy::Exact).exactEndMs(), std::nullopt);
    EXPECT_EQ(ExportProgress(5000).exactEndMs(), std::nullopt);
}

struct TimedCase {
    const char* name;
    Standstill standstill;
    int durationMs;
    std::vector<std::pair<std::int64_t, std::int64_t>> updates; ///< dts, and when it came; milliseconds
    std::string expected;                                       ///< '-' for going on, "still", "over"
    LengthPolicy length = LengthPolicy::Expected;
};

void PrintTo(const TimedCase& row, std::ostream* out) {
    *out << row.name;
}

class StandstillOf : public testing::TestWithParam<TimedCase> {};

TEST_P(StandstillOf, EndsAnExportThatHasHadItsTime) {
    ExportProgress progress(GetParam().durationMs, GetParam().length, GetParam().standstill);
    std::string told;
    for (const auto& [dts, when] : GetParam().updates) {
        const auto step = progress.update(dts, base::TimePoint(std::chrono::milliseconds(when)));
        EXPECT_TRUE(step.isOver || !step.stoodStill);
        told += told.empty() ? "" : " ";
        told += step.stoodStill ? "still" : step.isOver ? "over" : "-";
    }
    EXPECT_EQ(told, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Streams, StandstillOf,
    testing::Values(
        TimedCase{"FromTheBegin", Standstill::EndsIt, 5000, {{0, 0}, {0, 15000}, {0, 15001}}, "- - still"},
        TimedCase{"InTheMiddle",
                  Standstill::EndsIt,
                  5000,
                  {{0, 0}, {40, 9000}, {40, 24000}, {40, 24001}},
                  "- - - still"},
        TimedCase{
            "AsSlowAsCanBe", Standstill::EndsIt, 0, {{0, 0}, {1, 9999}, {2, 19998}, {2, 29997}}, "- - - -"},
        TimedCase{
            "WithoutADuration", Standstill::EndsIt, -7000, {{0, 0}, {0, 10000}, {0, 10001}}, "- - still"},
        TimedCase{"Endured", Standstill::Endured, 0, {{0, 0}, {0, 10001}, {0, 99999}}, "- - -"},
        TimedCase{"AnExactLength",
                  Standstill::EndsIt,
                  5000,
                  {{0, 0}, {0, 15000}, {0, 15001}},
                  "- - still",
                  LengthPolicy::Exact},
        TimedCase{"WithoutAnyEnd",
                  Standstill::EndsIt,
                  0,
                  {{0, 0}, {0, 15000}, {0, 99999}},
                  "- - -",
                  LengthPolicy::Exact},
        TimedCase{"LongestDuration",
                  Standstill::EndsIt,
                  std::numeric_limits<int>::max(),
                  {{0, 0}, {0, 2147493647}, {0, 2147493648}},
                  "- - still"}),
    [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace ko_player
