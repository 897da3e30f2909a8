#include "app/FaultGuard.h"

#include <gmock/gmock.h>

#include <csignal>
#include <stdexcept>
#include <thread>

namespace {

using ::testing::ExitedWithCode;

/// Each case crashes in a process of its own.
class FaultGuardDeathTest : public ::testing::Test {
protected:
    FaultGuardDeathTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

class FaultGuardSignalDeathTest : public FaultGuardDeathTest, public ::testing::WithParamInterface<int> {};

TEST_P(FaultGuardSignalDeathTest, EndsWithCode1) {
    EXPECT_EXIT(
        {
            fault_guard::silenceFaultDialogs();
            fault_guard::installCrashFilter();
            std::raise(GetParam());
        },
        ExitedWithCode(1), "^$");
}

INSTANTIATE_TEST_SUITE_P(Signals, FaultGuardSignalDeathTest,
                         ::testing::Values(SIGSEGV, SIGILL, SIGFPE, SIGABRT));

TEST_F(FaultGuardDeathTest, ExceptionThatNobodyCaughtInAThreadEndsWithCode1) {
    EXPECT_EXIT(
        {
            fault_guard::installCrashFilter();
            std::thread([] { throw std::runtime_error("nobody"); }).join();
        },
        ExitedWithCode(1), "^$");
}

} // namespace
