#pragma once

#include "base/HandlerStack.h"
#include "base/ThreadName.h"

namespace base {

/// What each of our threads does first: it makes sure that a fault in it ends the process in order, and takes
/// a name of at most 15 characters.
inline void enterThread(const char* name) noexcept {
    provideHandlerStack();
    setThreadName(name);
}

} // namespace base
