#include "flv/ContinuousTime.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace ko_player::flv {
namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kDay = 86'400'000;

struct Stamp {
    char medium; ///< 'v' or 'a'
    std::int64_t ms;
    std::int64_t expected; ///< where it belongs
};

struct Case {
    const char* name;
    std::vector<Stamp> stamps;
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

class ContinuousTimeOf : public testing::TestWithParam<Case> {};

TEST_P(ContinuousTimeOf, PutsEachPacketWhereItBelongs) {
    ContinuousTime time;
    int i = 0;
    for (const Stamp& stamp : GetParam().stamps) {
        const Medium medium = stamp.medium == 'v' ? Medium::Video : Medium::Audio;
        EXPECT_EQ(stamp.ms + time.shiftOf(medium, stamp.ms), stamp.expected) << "packet " << i;
        ++i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Clocks, ContinuousTimeOf,
    testing::Values(
        Case{"Steady", {{'v', 0, 0}, {'a', 10, 10}, {'v', 40, 40}, {'a', 33, 33}}},
        Case{"BeginningAnywhere", {{'v', 1'800'000, 1'800'000}, {'a', 1'800'010, 1'800'010}}},
        Case{"AGapStays", {{'v', 0, 0}, {'v', 7'200'000, 7'200'000}, {'a', 7'200'010, 7'200'010}}},
        Case{"AGapOfADayStays", {{'v', 0, 0}, {'v', kDay, kDay}, {'a', kDay + 10, kDay + 10}}},
        Case{"DaysAheadAreAnotherClock",
             {{'v', 0, 0},
              {'a', 10, 10},
              {'v', 40, 40},
              {'a', 33, 33},
              {'v', 41 + kDay, 80},
              {'a', 51 + kDay, 90},
              {'v', 81 + kDay, 120}}},
        Case{"DaysAheadForSoundAlone",
             {{'v', 0, 0}, {'a', 0, 0}, {'a', 20, 20}, {'a', 9 * kDay, 40}, {'v', 40, 40}, {'v', 80, 80}}},
        Case{"DaysAheadAndBack",
             {{'v', 0, 0}, {'v', 40, 40}, {'v', 5 * kDay, 80}, {'v', 5 * kDay + 40, 120}, {'v', 160, 160}}},
        Case{"ALittleBackIsNoJump", {{'v', 2000, 2000}, {'v', 1000, 1000}, {'v', 2040, 2040}}},
        Case{"JustAJump", {{'v', 2000, 2000}, {'v', 2040, 2040}, {'v', 1039, 2080}, {'v', 1079, 2120}}},
        Case{"BothInStep",
             {{'v', 5000, 5000},
              {'a', 5010, 5010},
              {'v', 5040, 5040},
              {'a', 5033, 5033},
              {'v', 0, 5080},
              {'a', 10, 5090},
              {'v', 40, 5120}}},
        Case{"SoundFirst",
             {{'v', 5000, 5000}, {'a', 5010, 5010}, {'a', 5030, 5030}, {'a', 3, 5050}, {'v', 0, 5047}}},
        Case{"BehindTheOneThatIsAhead",
             {{'v', 5000, 5000}, {'v', 5040, 5040}, {'a', 5900, 5900}, {'v', 0, 5940}, {'a', 15, 5955}}},
        Case{"TheOldClockGoesOnForTheOther",
             {{'v', 5000, 5000}, {'a', 5000, 5000}, {'v', 0, 5001}, {'a', 5020, 5020}, {'a', 30, 5031}}},
        Case{"Twice",
             {{'v', 9000, 9000},
              {'a', 9000, 9000},
              {'v', 0, 9001},
              {'a', 0, 9001},
              {'v', 2000, 11001},
              {'a', 2000, 11001},
              {'a', 0, 12001},
              {'v', 0, 12001}}},
        Case{
            "OneAloneAgainAndAgain",
            {{'a', 0, 0}, {'v', 0, 0}, {'v', 2000, 2000}, {'v', 0, 3000}, {'v', 2000, 5000}, {'v', 0, 6000}}},
        Case{"SoundThatBeginsAfterTheJump", {{'v', 5000, 5000}, {'v', 0, 5001}, {'a', 20, 5021}}},
        Case{"TheLargestStamps", {{'v', kMax, kMax}, {'v', kMax, kMax}}}),
    [](const auto& instance) { return instance.param.name; });

} // namespace
} // namespace ko_player::flv
