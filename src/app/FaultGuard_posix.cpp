#include "app/FaultGuard.h"

#include "base/HandlerStack.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <initializer_list>

#include <unistd.h>

namespace fault_guard {
namespace {

constexpr int kCrashCode = 1;

extern "C" void endAfterSignal(int /*signal*/) {
    // The process is in an unknown state: nothing else is safe here.
    ::_exit(kCrashCode);
}

/// The sound server's library raises this one where it finds no memory. From others it is what it always was.
extern "C" void endAfterQuit(int signal, siginfo_t* info, void* /*context*/) {
    if (info->si_pid == ::getpid()) {
        ::_exit(kCrashCode);
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal); // comes when this returns
}

} // namespace

void silenceFaultDialogs() {
    // There are none.
}

void installCrashFilter() {
    struct sigaction action {};
    action.sa_handler = endAfterSignal;
    action.sa_flags = SA_ONSTACK;
    ::sigfillset(&action.sa_mask);
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGSYS, SIGTRAP}) {
        ::sigaction(signal, &action, nullptr);
    }
    action.sa_sigaction = endAfterQuit;
    action.sa_flags = SA_ONSTACK | SA_SIGINFO;
    ::sigaction(SIGQUIT, &action, nullptr);
    // Once they are there: the system ends a process that has no memory for a thread's variables by a signal.
    base::provideHandlerStack();
    std::set_terminate([] { std::_Exit(kCrashCode); });
    // A parent that closes its end of standard error must not kill the worker.
    std::signal(SIGPIPE, SIG_IGN);
    // A limit for the size of files shows as an error of whoever writes, which tells what could not be
    // written.
    std::signal(SIGXFSZ, SIG_IGN);
}

} // namespace fault_guard
