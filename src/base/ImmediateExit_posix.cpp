#include "base/ImmediateExit.h"

#include <cstdlib>

namespace base {

void exitNow(int code) noexcept {
    std::_Exit(code);
}

void exitOrderly(int code, const std::function<void()>& prepare) {
    prepare();
    std::exit(code); // NOLINT(concurrency-mt-unsafe)
}

} // namespace base
