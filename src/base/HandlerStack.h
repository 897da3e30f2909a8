#pragma once

namespace base {

/// Gives the calling thread a stack of its own for handlers of faults, until it ends: its usual one may be
/// what overflowed. Without memory for it there is none. Nothing to do where the system keeps room for that
/// itself.
void provideHandlerStack() noexcept;

} // namespace base
