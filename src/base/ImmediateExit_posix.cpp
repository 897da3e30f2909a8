#include "base/ImmediateExit.h"

#include <cstdlib>

namespace base {

void exitNow(int code) noexcept {
    std::_Exit(code);
}

} // namespace base
