// A library that a test has loaded into a worker: a signal to one of its threads makes a fault happen there,
// in the middle of whatever it waits for.
#include "Faults.h"

#include <iterator>

#include <signal.h> // NOLINT(modernize-deprecated-headers): of POSIX

namespace {

using Fault = void (*)();
// In the order of the test's table.
constexpr Fault kFaults[] = {accessViolation, illegalInstruction, stackOverflow, uncaughtException,
                             callAbort};

extern "C" void fail(int /*signal*/, siginfo_t* info, void* /*context*/) {
    const int which = info->si_value.sival_int;
    if (which >= 0 && which < static_cast<int>(std::size(kFaults))) {
        kFaults[which]();
    }
}

[[gnu::constructor]] void listen() {
    struct sigaction action {};
    action.sa_sigaction = fail;
    action.sa_flags = SA_SIGINFO; // on the thread's usual stack
    sigaction(SIGUSR1, &action, nullptr);
}

} // namespace
