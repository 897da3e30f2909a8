#include "base/ImmediateExit.h"

#include <windows.h>

namespace base {

// std::exit() and std::_Exit() end all other threads and then let the libraries clean up: that waits for ever
// for a lock that one of those threads had.
void exitNow(int code) noexcept {
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
    for (;;) { // it does not come back for the own process, which the compiler cannot know
    }
}

void exitOrderly(int code, const std::function<void()>& /*prepare*/) {
    exitNow(code);
}

} // namespace base
