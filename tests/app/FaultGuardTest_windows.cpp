#include "app/FaultGuard.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ostream>
#include <stdexcept>
#include <thread>

#include <windows.h>

namespace {

using ::testing::ExitedWithCode;

struct Fault {
    const char* name;
    void (*happen)();

    friend void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }
};

volatile int zero = 0;

void raise(DWORD code) {
    RaiseException(code, EXCEPTION_NONCONTINUABLE, 0, nullptr);
}

int overflow(int depth);

/// What the compiler cannot see through: it knows these faults, and leaves their code out.
int (*volatile deeper)(int) = overflow;
int* volatile nowhere = nullptr;

/// Uses up the stack.
int overflow(int depth) { // NOLINT(misc-no-recursion)
    volatile char room[4096];
    room[0] = static_cast<char>(depth);
    return deeper(depth + 1) + room[0];
}

const Fault kFaults[] = {
    {"AccessViolation", [] { *nowhere = 1; }},
    {"IllegalInstruction", [] { __builtin_trap(); }},
    {"DivisionByZero", [] { zero = 100 / zero; }},
    {"StackOverflow", [] { zero = overflow(0); }},
    {"AnyOtherException", [] { raise(0xE0001234); }},
    {"Abort", [] { std::abort(); }},
    {"UncaughtException", [] { throw std::runtime_error("nobody"); }},
    {"Terminate", [] { std::terminate(); }},
};

/// Each case crashes in a process of its own.
class FaultGuardDeathTest : public ::testing::TestWithParam<Fault> {
protected:
    FaultGuardDeathTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    static void prepare() {
        fault_guard::silenceFaultDialogs();
        fault_guard::installCrashFilter();
    }
};

// GoogleTest catches C++ exceptions on the test's own thread, so none of them comes to the guard there.
TEST_P(FaultGuardDeathTest, EndsWithCode1) {
    if (GetParam().name == std::string("UncaughtException")) {
        GTEST_SKIP() << "caught by GoogleTest on this thread; the test below covers it";
    }
    EXPECT_EXIT(
        {
            prepare();
            GetParam().happen();
        },
        ExitedWithCode(1), "");
}

TEST_P(FaultGuardDeathTest, EndsWithCode1InAnyThread) {
    EXPECT_EXIT(
        {
            prepare();
            std::thread(GetParam().happen).join();
        },
        ExitedWithCode(1), "");
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultGuardDeathTest, ::testing::ValuesIn(kFaults),
                         [](const auto& instance) { return instance.param.name; });

TEST(FaultGuard, SilencesTheDialogAndKeepsTheRestOfTheMode) {
    const UINT before = SetErrorMode(SEM_FAILCRITICALERRORS);
    fault_guard::silenceFaultDialogs();
    EXPECT_EQ(SetErrorMode(before), UINT{SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX});
}

} // namespace
