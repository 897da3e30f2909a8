#pragma once

#include <QString>

namespace mediaworker {

/// The URL of a local file as a worker takes it: the path behind "file:///", letter by letter, nothing
/// percent-encoded. `path` may be relative to `folder`, and have the system's own separators.
[[nodiscard]] QString fileUrl(const QString& path, const QString& folder);

/// Whether a worker takes it for a file.
[[nodiscard]] bool isFileUrl(const QString& url);

} // namespace mediaworker
