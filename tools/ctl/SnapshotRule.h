#pragma once

#include <QString>

#include <chrono>
#include <optional>

namespace mediaworker::ctl {

/// Which pictures are saved: the first, and from then on each first one that is `interval` of the stream or
/// more behind the one saved before. Where time stamps go backwards it begins anew.
class SnapshotRule {
public:
    explicit SnapshotRule(std::chrono::milliseconds interval) : interval_(interval) {}

    /// Whether to save the picture of that time stamp.
    [[nodiscard]] bool take(qint64 ptsMs);

    /// The name of the picture that was taken last: "picture-0001-at-5000-ms.png".
    [[nodiscard]] QString fileName() const;

private:
    std::chrono::milliseconds interval_;
    std::optional<qint64> takenMs_;
    qint64 newestMs_ = 0;
    int count_ = 0;
};

} // namespace mediaworker::ctl
