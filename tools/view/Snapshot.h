#pragma once

#include <QDateTime>
#include <QImage>
#include <QString>

#include <functional>

namespace mediaworker::view {

/// A file name (without folder) for a picture of that stream, taken at that time; only letters, digits, dots,
/// dashes and underscores. `isTaken` is asked until it says no.
[[nodiscard]] QString snapshotName(const QString& streamName, const QDateTime& when,
                                   const std::function<bool(const QString& name)>& isTaken);

/// Writes the picture as PNG: a whole file or none, and never over another one. Empty, or what went wrong.
/// Thread-safe.
[[nodiscard]] QString savePng(const QImage& picture, const QString& path);

} // namespace mediaworker::view
