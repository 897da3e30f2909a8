#pragma once

#include <QString>

namespace mediaworker {

/// Where an export is written until it is complete: beside its target, so that a file of that name stays as
/// it is until the new one can take its place at once.
[[nodiscard]] QString partialPath(const QString& target);

/// Puts a file in the place of another one, on the same file system. False when the system does not allow it.
[[nodiscard]] bool replaceFile(const QString& from, const QString& target);

} // namespace mediaworker
