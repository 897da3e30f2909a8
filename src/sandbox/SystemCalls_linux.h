#pragma once

#include "sandbox/Needs.h"

#include <optional>
#include <string>

namespace sandbox {

/// Refuses the whole process, all of its threads, the calls that no player needs. Needs no_new_privs. The
/// reason why that is not in force; nothing when it is.
[[nodiscard]] std::optional<std::string> restrictSystemCalls(const Needs& needs);

} // namespace sandbox
