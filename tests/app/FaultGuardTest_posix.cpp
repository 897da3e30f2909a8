#include "app/FaultGuard.h"

#include "base/ThreadEntry.h"

#include <gmock/gmock.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using ::testing::ExitedWithCode;

int overflow(std::size_t depth);
int (*volatile deeper)(std::size_t) = overflow; ///< not for the compiler to see through

int overflow(std::size_t depth) { // NOLINT(misc-no-recursion)
    std::array<volatile char, 4096> room{};
    room[depth % room.size()] = 1;
    return deeper(depth + 1) + room[0];
}

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
                         ::testing::Values(SIGSEGV, SIGILL, SIGFPE, SIGABRT, SIGQUIT));

// A user's or a parent's signal is no crash: it ends the process as it ends any.
TEST_F(FaultGuardDeathTest, QuitSignalOfAnotherProcessStaysOne) {
    EXPECT_EXIT(
        {
            fault_guard::installCrashFilter();
            const pid_t own = ::getpid();
            const pid_t other = ::fork();
            if (other == 0) {
                ::kill(own, SIGQUIT);
                std::_Exit(0);
            }
            ::waitpid(other, nullptr, 0);
            std::_Exit(7);
        },
        ::testing::KilledBySignal(SIGQUIT), "^$");
}

TEST_F(FaultGuardDeathTest, WhatShowsAsWriteErrorsIsNoCrash) {
    EXPECT_EXIT(
        {
            fault_guard::installCrashFilter();
            std::raise(SIGPIPE);
            std::raise(SIGXFSZ);
            std::_Exit(7);
        },
        ExitedWithCode(7), "^$");
}

TEST_F(FaultGuardDeathTest, StackThatOverflowsInAThreadEndsWithCode1) {
    EXPECT_EXIT(
        {
            fault_guard::installCrashFilter();
            std::thread([] {
                base::enterThread("overflowing");
                overflow(0);
            }).join();
        },
        ExitedWithCode(1), "^$");
}

TEST_F(FaultGuardDeathTest, ExceptionThatNobodyCaughtInAThreadEndsWithCode1) {
    EXPECT_EXIT(
        {
            fault_guard::installCrashFilter();
            std::thread([] { throw std::runtime_error("nobody"); }).join();
        },
        ExitedWithCode(1), "^$");
}

} // namespace
