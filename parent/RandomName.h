#pragma once

#include <QString>

namespace mediaworker::parent {

/// A name that nobody can guess or has used before: 128 random bits of the system behind a fixed prefix.
/// Short enough for the path of a local socket in a usual temporary directory. Thread-safe.
[[nodiscard]] QString randomName();

} // namespace mediaworker::parent
