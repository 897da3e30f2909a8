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

/// Whether a player finds anything in an MP4 file, by its boxes: an index, and pictures or sound that it
/// knows. What a killed worker leaves of a file that it did not write crash-safe has none.
[[nodiscard]] bool isPlayable(const QString& file);

/// Removes what a worker that failed has left of an export, unless it may be of use. Says whether it is kept.
/// `wasKilled`: nobody closed the file. What was closed is kept as it is.
[[nodiscard]] bool keepRemains(const QString& partialFile, bool wasKilled);

enum class Replacing {
    Allowed, ///< what is there goes, in the same instant
    Refused,
};

/// Gives a file the name of another one, on the same file system. False when the system, or `replacing`, does
/// not allow it; both files are as they were then.
[[nodiscard]] bool moveFile(const QString& from, const QString& target, Replacing replacing);

} // namespace mediaworker
