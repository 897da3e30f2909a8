#pragma once

#include <QString>

namespace mediaworker::parent {

/// What the system says of a file, whatever a worker says.
enum class LocalFileState { Unknown, Readable, Missing, Folder, Unreadable };

/// A file on this machine.
struct LocalFile {
    QString path = {};                              ///< in full; empty: no local file
    LocalFileState state = LocalFileState::Unknown; ///< when it was looked at
};

/// The file that a worker opens for this URL, which begins with "file".
[[nodiscard]] LocalFile lookAtLocalFile(const QString& url);

} // namespace mediaworker::parent
