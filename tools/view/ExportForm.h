#pragma once

#include <QString>

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

/// What is wrong with the form, as a sentence for the user; empty when it can be carried out.
[[nodiscard]] QString exportFormProblem(const QString& url, const QString& length, const QString& path,
                                        const TargetFile& target);

/// The name as the user typed it, with ".mp4" where it has no such ending: the worker writes no other format.
[[nodiscard]] QString withMp4Suffix(const QString& path);

enum class ExportEnd {
    Complete,
    Cancelled,
    Failed,   ///< by the worker's exit code
    NotSaved, ///< complete, but the file could not be given its name
};

/// How an export ended, as a sentence for the user. `why` says it for Failed, and what a Complete one lacks;
/// `file` is what is left.
[[nodiscard]] QString exportEndText(ExportEnd end, const QString& file, const QString& why);

} // namespace mediaworker::view
