#pragma once

namespace base {

/// From now on this process is not killed because its parent has died, where a parent has asked the system
/// for that (PR_SET_PDEATHSIG of prctl(2) on Linux). For a process that learns of it by other means, and has
/// something to finish then. Any thread.
void surviveParent() noexcept;

} // namespace base
