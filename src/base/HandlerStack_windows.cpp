#include "base/HandlerStack.h"

namespace base {

// The filter for exceptions runs on the faulty thread's stack, in pages that the system keeps for it.
void provideHandlerStack() noexcept {}

} // namespace base
