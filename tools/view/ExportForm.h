#pragma once

#include <QDateTime>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

namespace mediaworker::view {

/// A length as people write it: "90" (seconds), "1:30", "0:01:30". In milliseconds; nothing for anything else
/// and for what is not between one second and a day.
[[nodiscard]] std::optional<int> parseLength(const QString& text);

/// What the file system says about the file that a user chose.
struct TargetFile {
    bool isFolder = false;
    bool exists = false;
    bool folderExists = false;
    bool folderIsWritable = false;
};
[[nodiscard]] TargetFile lookAt(const QString& path);

/// What is wrong with the form, as a sentence for the user; empty when it can be carried out. Without
/// `length`: until it is finished.
[[nodiscard]] QString exportFormProblem(const QString& url, const std::optional<QString>& length,
                                        const QString& path, const TargetFile& target);

/// The name as the user typed it, with ".mp4" where it ends with neither that nor ".m4v": the worker writes
/// no other format.
[[nodiscard]] QString withMp4Suffix(const QString& path);

/// A name for a recording's file: the stream's, with nothing in it that a file system, a shell or a person
/// would trip over, and when it was begun: "Entrance-2026-11-21-14-05-30.mp4". Counted on while it is taken.
[[nodiscard]] QString recordingFileName(const QString& streamName, const QDateTime& when,
                                        const std::function<bool(const QString& name)>& isTaken);

/// How long a recording is, or was to be: "0:12.3", "0:12.3 of 1:00.0".
[[nodiscard]] QString recordedText(std::chrono::milliseconds recorded, std::chrono::milliseconds asked);

enum class ExportEnd {
    Complete,
    Cancelled,
    Empty,    ///< finished before there was anything to record
    Failed,   ///< by the worker's exit code
    NotSaved, ///< complete, but the file could not be given its name
};

/// How an export ended, as a sentence for the user. `why` says it for Failed, and what a Complete one lacks;
/// `file` is what is left.
[[nodiscard]] QString exportEndText(ExportEnd end, const QString& file, const QString& why);

} // namespace mediaworker::view
