#pragma once

#include <QString>

#include <optional>

namespace mediaworker {

/// Where an export is written until it is complete: "film.partial.mp4" beside "film.mp4", so that a file of
/// that name stays as it is until the new one can take its place at once. Where there is one already (of an
/// export that failed, or that still runs), "film.partial-2.mp4", and so on: nobody else gets the same name.
///
/// An empty file is made. Empty when that is not possible.
[[nodiscard]] std::optional<QString> makePartialFile(const QString& target);

enum class Replacing {
    Allowed, ///< what is there goes, in the same instant
    Refused,
};

/// Gives a file the name of another one, on the same file system. False when the system, or `replacing`, does
/// not allow it; both files are as they were then.
[[nodiscard]] bool moveFile(const QString& from, const QString& target, Replacing replacing);

} // namespace mediaworker
