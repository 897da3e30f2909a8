#include "output/PresentationClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <vector>

namespace ko_player {
namespace {

using std::chrono::milliseconds;
using Notice = PresentationClock::Notice;

constexpr base::TimePoint kStart{std::chrono::hours(1)};

base::TimePoint at(std::int64_t ms) {
    return kStart + milliseconds(ms);
}

/// One picture: when it comes, and when it is to be released; both in milliseconds after kStart.
struct Step {
    std::int64_t pts;
    std::int64_t newest;
    std::int64_t nowMs;
    std::int64_t releaseMs;
    bool mustWait;
    Notice notice = Notice::None;
};

struct Row {
    const char* name;
    std::vector<Step> steps;
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

class PresentationClockRows : public testing::TestWithParam<Row> {};

TEST_P(PresentationClockRows, ReleasesEachPicture) {
    PresentationClock clock;
    int index = 0;
    for (const Step& step : GetParam().steps) {
        SCOPED_TRACE("step " + std::to_string(index++));
        const auto release = clock.next(step.pts, step.newest, at(step.nowMs));
        EXPECT_EQ(release.showTime, at(step.releaseMs));
        EXPECT_EQ(release.mustWait, step.mustWait);
        EXPECT_EQ(release.notice, step.notice);
    }
}

const Row kRows[] = {
    {"FirstPictureIsReleasedAtOnce", {{5000, 5000, 7, 7, false}}},
    {"PicturesOnTimeKeepTheirSpacing",
     {{0, 0, 0, 0, false}, {40, 40, 3, 40, true}, {80, 80, 41, 80, true}, {120, 120, 120, 120, true}}},
    {"AJumpOf1200IsWaitedFor", {{0, 0, 0, 0, false}, {1200, 1200, 5, 1200, true}}},
    {"AJumpOf1201RestartsAtThePresent",
     {{0, 0, 0, 0, false}, {1201, 1201, 5, 5, true, Notice::BigDifference}, {1241, 1241, 6, 45, true}}},
    {"GoingBackMovesTheReferenceByOne",
     {{1000, 1000, 0, 0, false},
      {900, 1000, 0, 1, true, Notice::NegativeDelta},
      // The reference is 1001 now, not 900.
      {1041, 1041, 2, 41, true}}},
    {"LateKeepsTheSpacingFromThePreviousRelease",
     {{0, 0, 0, 0, false}, {40, 40, 100, 100, false}, {80, 80, 101, 140, true}, {120, 120, 141, 180, true}}},
    {"LateByMoreThanTheSpacingIsReleasedAtOnce",
     {{0, 0, 0, 0, false}, {40, 40, 100, 100, false}, {80, 80, 300, 300, false}}},
    {"LateWith600BehindHurries", {{0, 0, 0, 0, false}, {40, 40, 100, 100, false}, {80, 680, 101, 132, true}}},
    {"LateWith500BehindDoesNotHurry",
     {{0, 0, 0, 0, false}, {40, 40, 100, 100, false}, {80, 580, 101, 140, true}}},
    {"LateWith501BehindHurries", {{0, 0, 0, 0, false}, {40, 40, 100, 100, false}, {80, 581, 101, 132, true}}},
    {"HurriedSpacingIsTruncatedToWholeMilliseconds",
     {{0, 0, 0, 0, false}, {33, 33, 100, 100, false}, {66, 1000, 101, 126, true}}},
    {"OnTimeDoesNotHurryHoweverMuchWaits", {{0, 9000, 0, 0, false}, {40, 9000, 10, 40, true}}},
    {"EqualTimeStampsAreReleasedTogether", {{0, 0, 0, 0, false}, {0, 0, 0, 0, true}, {0, 0, 3, 3, false}}},
    {"NegativeTimeStampsNeverAnchor",
     {{-500, 0, 0, 0, false}, {-460, 0, 9, 9, false}, {0, 0, 11, 11, false}, {40, 40, 12, 51, true}}},
    {"TheLargestTimeStampDoesNotOverflow",
     {{0, 0, 0, 0, false},
      {std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::max(), 4, 4, true,
       Notice::BigDifference},
      {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(), 500, 500, false,
       Notice::NegativeDelta}}},
};

INSTANTIATE_TEST_SUITE_P(Rows, PresentationClockRows, testing::ValuesIn(kRows),
                         [](const auto& row) { return row.param.name; });

TEST(PresentationClock, ReportsTheSizeOfABigDifference) {
    PresentationClock clock;
    static_cast<void>(clock.next(100, 100, at(0)));
    EXPECT_EQ(clock.next(1301, 1301, at(0)).deltaMs, 1201);
}

TEST(PresentationClock, AnchorsAnewAfterReset) {
    PresentationClock clock;
    static_cast<void>(clock.next(0, 0, at(0)));
    clock.reset();
    const auto release = clock.next(40, 40, at(7000));
    EXPECT_FALSE(release.mustWait);
    EXPECT_EQ(release.showTime, at(7000));
    EXPECT_EQ(clock.next(80, 80, at(7001)).showTime, at(7040));
}

} // namespace
} // namespace ko_player
