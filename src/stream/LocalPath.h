#pragma once

#include <QString>

#include <string>

/// The path to open for the first argument of local-file mode: a file URL or a bare path. In the encoding
/// that FFmpeg opens files with.
[[nodiscard]] std::string localPath(const QString& url);

namespace local_path {

/// What is left of the argument without its scheme, as this platform's path. `schemeRemoved` tells whether it
/// had one.
[[nodiscard]] QString toPlatformPath(const QString& rest, bool schemeRemoved);
[[nodiscard]] std::string encode(const QString& path);

} // namespace local_path
