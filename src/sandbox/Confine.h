#pragma once

#include "sandbox/Needs.h"

#include <string>
#include <vector>

namespace sandbox {

/// Of this process. `programFolder` is the caller's to fill in.
[[nodiscard]] Surroundings surroundings();

/// Takes everything away from this process that it does not need, for good. Call on the main thread before
/// any other is started: those inherit it. Returns what this system does not have, in words; empty where all
/// of it is in force.
[[nodiscard]] std::vector<std::string> confine(const Needs& needs);

} // namespace sandbox
