#pragma once

#include <QString>

namespace mediaworker::parent {

/// The text is an address of any kind, "http://…" or "rtsp://…", and not a path.
[[nodiscard]] bool isAddress(const QString& text);

/// Why that cannot be played, in words without a full stop and without passwords; empty for what may be
/// tried: http, https, files and paths.
[[nodiscard]] QString addressProblem(const QString& text);

} // namespace mediaworker::parent
