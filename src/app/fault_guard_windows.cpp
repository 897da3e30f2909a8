#include "app/fault_guard.h"

#include <cstdlib>
#include <exception>

#include <windows.h>

namespace fault_guard {
namespace {

constexpr int kCrashCode = 1;

LONG WINAPI endAfterFault(EXCEPTION_POINTERS* /*fault*/) {
    std::exit(kCrashCode);
}

} // namespace

void silenceFaultDialogs() {
    // The mode can only be read by setting one.
    SetErrorMode(SetErrorMode(SEM_NOGPFAULTERRORBOX) | SEM_NOGPFAULTERRORBOX);
}

void installCrashFilter() {
    SetUnhandledExceptionFilter(endAfterFault);
    std::set_terminate([] { std::_Exit(kCrashCode); });
}

} // namespace fault_guard
