#pragma once

#include "Traces.h"

#include <filesystem>

namespace mediaworker::soak {

/// Starts so many workers of all kinds, several at a time, and ends each at a random moment in a random way.
/// `folder` is for the files of exports. Prints what became of all. False when anything is left behind, or
/// one ended as none may.
[[nodiscard]] bool startAndEnd(int workers, const std::filesystem::path& folder, const Traces& traces);

} // namespace mediaworker::soak
