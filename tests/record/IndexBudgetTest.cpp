#include "record/IndexBudget.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace ko_player {
namespace {

struct Case {
    const char* what;
    std::int64_t firstMs;
    double stepMs;        ///< from packet to packet
    std::int64_t packets; ///< that are taken; -1: all that were tried
};

constexpr std::int64_t kTried = 3'000'000;

std::int64_t takenOf(const Case& row) {
    IndexBudget budget;
    for (std::int64_t i = 0; i < kTried; ++i) {
        if (!budget.add(row.firstMs + static_cast<std::int64_t>(static_cast<double>(i) * row.stepMs))) {
            return i;
        }
    }
    return -1;
}

TEST(IndexBudget, IsLargeEnoughForEveryStreamThatSomebodyLooksAt) {
    for (const Case& row : {Case{"a camera with sound, 12 hours", 0, 1000.0 / 68, -1},
                            Case{"120 pictures and sound in pieces of 10 ms", 0, 1000.0 / 220, -1},
                            Case{"nearly the most", 0, 1000.0 / 499, -1},
                            Case{"the same from elsewhere", -5'000'000, 1000.0 / 499, -1},
                            Case{"stamps that stand still", 7, 0, IndexBudget::kFreePackets},
                            Case{"stamps that go back", 7, -1, IndexBudget::kFreePackets},
                            Case{"a packet in each millisecond", 0, 1, IndexBudget::kFreePackets},
                            Case{"a few more than the most", 0, 1000.0 / 502, IndexBudget::kFreePackets}}) {
        EXPECT_EQ(takenOf(row), row.packets) << row.what;
    }
}

TEST(IndexBudget, IsMadeByTimeThatPasses) {
    IndexBudget budget;
    for (std::int64_t i = 0; i < IndexBudget::kFreePackets; ++i) {
        ASSERT_TRUE(budget.add(0));
    }
    EXPECT_FALSE(budget.add(1'999'000));
    EXPECT_TRUE(budget.add(2'000'999));
}

TEST(IndexBudget, CannotOverflow) {
    IndexBudget budget;
    EXPECT_TRUE(budget.add(std::numeric_limits<std::int64_t>::min()));
    EXPECT_TRUE(budget.add(std::numeric_limits<std::int64_t>::max()));
}

} // namespace
} // namespace ko_player
