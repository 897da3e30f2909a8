#include "base/ImmediateExit.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace base {
namespace {

TEST(ImmediateExitDeathTest, EndsWithTheCodeAndRunsNoHandler) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const int code : {0, 4, 255}) {
        EXPECT_EXIT(
            {
                std::atexit([] { std::_Exit(9); });
                exitNow(code);
            },
            ::testing::ExitedWithCode(code), "")
            << code;
    }
}

TEST(ImmediateExitDeathTest, IsOrderlyWithTheCodeThatWasGiven) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    for (const int code : {0, 1, 255}) {
        EXPECT_EXIT(exitOrderly(code, [] {}), ::testing::ExitedWithCode(code), "") << code;
    }
}

} // namespace
} // namespace base
