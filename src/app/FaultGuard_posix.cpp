#include "app/FaultGuard.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <exception>

#include <unistd.h>

namespace fault_guard {
namespace {

constexpr int kCrashCode = 1;

/// Own stack for the handlers: the main thread's may be what overflowed. No more than `_exit` runs on it.
std::array<char, 64 << 10> handlerStack;

extern "C" void endAfterSignal(int /*signal*/) {
    // The process is in an unknown state: nothing else is safe here.
    ::_exit(kCrashCode);
}

} // namespace

void silenceFaultDialogs() {
    // There are none.
}

void installCrashFilter() {
    stack_t stack{};
    stack.ss_sp = handlerStack.data();
    stack.ss_size = handlerStack.size();
    ::sigaltstack(&stack, nullptr);

    struct sigaction action {};
    action.sa_handler = endAfterSignal;
    action.sa_flags = SA_ONSTACK;
    ::sigfillset(&action.sa_mask);
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGSYS, SIGTRAP}) {
        ::sigaction(signal, &action, nullptr);
    }
    std::set_terminate([] { std::_Exit(kCrashCode); });
    // A parent that closes its end of standard error must not kill the worker.
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace fault_guard
