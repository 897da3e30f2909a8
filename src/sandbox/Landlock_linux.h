#pragma once

#include "sandbox/Needs.h"

#include <optional>
#include <string>

namespace sandbox {

/// Lets the calling thread, and all that it starts later, at those paths only. Needs no_new_privs. The reason
/// why that is not in force; nothing when it is.
[[nodiscard]] std::optional<std::string> restrictPaths(const Needs& needs);

} // namespace sandbox
