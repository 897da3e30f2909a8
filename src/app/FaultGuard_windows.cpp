#include "app/FaultGuard.h"

#include <csignal>
#include <exception>

#include <windows.h>

namespace fault_guard {
namespace {

constexpr UINT kCrashCode = 1;

/// The process is in an unknown state, and its stack may be used up: no destructor, no library's clean-up and
/// no lock of the loader, which another thread may hold.
[[noreturn]] void end() {
    TerminateProcess(GetCurrentProcess(), kCrashCode);
    for (;;) { // TerminateProcess() does not come back for the own process, which the compiler cannot know
    }
}

LONG WINAPI endAfterFault(EXCEPTION_POINTERS* /*fault*/) {
    end();
}

extern "C" void endAfterAbort(int /*signal*/) {
    end();
}

} // namespace

void silenceFaultDialogs() {
    // The mode can only be read by setting one.
    SetErrorMode(SetErrorMode(SEM_NOGPFAULTERRORBOX) | SEM_NOGPFAULTERRORBOX);
}

void installCrashFilter() {
    SetUnhandledExceptionFilter(endAfterFault);
    std::set_terminate(end);
    // abort() would end with code 3, and with a message where the run-time library shows one.
    std::signal(SIGABRT, endAfterAbort);
}

} // namespace fault_guard
