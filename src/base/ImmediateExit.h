#pragma once

namespace base {

/// Ends the process at once with this exit code, whatever its other threads are doing: no destructor, exit
/// handler or library's clean-up runs. Thread-safe.
[[noreturn]] void exitNow(int code) noexcept;

} // namespace base
