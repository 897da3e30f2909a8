#include "base/ParentDeath.h"

namespace base {

// A job that ends with its last handle cannot be left.
void surviveParent() noexcept {}

} // namespace base
