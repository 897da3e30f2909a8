#pragma once

#include <functional>

namespace base {

/// Ends the process at once with this exit code, whatever its other threads are doing: no destructor, exit
/// handler or library's clean-up runs. Thread-safe.
[[noreturn]] void exitNow(int code) noexcept;

/// Ends the process with its clean-up where that can be trusted to come to an end while other threads run,
/// else as exitNow() does. `prepare` does what a clean-up needs to find done; without one it is not called.
/// What must not be lost is closed before.
[[noreturn]] void exitOrderly(int code, const std::function<void()>& prepare);

} // namespace base
