#include "record/ExportProgress.h"

#include <algorithm>
#include <chrono>

namespace ko_player {

ExportProgress::Step ExportProgress::update(std::int64_t dtsMs, base::TimePoint now) {
    if (length_ == LengthPolicy::Expected && dtsMs > durationMs_ + kToleranceMs) {
        return {.isOver = true};
    }
    if (standstill_ == Standstill::EndsIt && hasStoodStill(dtsMs, now)) {
        return {.isOver = true, .stoodStill = true};
    }
    if (durationMs_ <= 0) {
        return {};
    }
    const auto percent = static_cast<std::int32_t>(dtsMs * 100 / durationMs_);
    if (percent == last_) {
        return {};
    }
    last_ = percent;
    return {.percent = std::clamp(percent, 0, 100)};
}

/// A slow server's time goes on, however slowly. A live stream whose stamps are all the same would be
/// recorded for ever: it ends when what was asked for must have been sent. Where no end was asked for, there
/// is none.
bool ExportProgress::hasStoodStill(std::int64_t dtsMs, base::TimePoint now) {
    if (!reached_ || dtsMs > reached_->dtsMs) {
        reached_ = {dtsMs, now};
        return false;
    }
    if (length_ == LengthPolicy::Exact && durationMs_ <= 0) {
        return false;
    }
    const std::int64_t limitMs = std::max(durationMs_, 0) + kToleranceMs;
    return now - reached_->when > std::chrono::milliseconds(limitMs);
}

std::optional<int> ExportProgress::complete() {
    constexpr int kAll = 100;
    if (durationMs_ <= 0 || last_ >= kAll) {
        return std::nullopt;
    }
    last_ = kAll;
    return kAll;
}

std::optional<std::int64_t> ExportProgress::exactEndMs() const {
    return length_ == LengthPolicy::Exact && durationMs_ > 0 ? std::optional<std::int64_t>(durationMs_)
                                                             : std::nullopt;
}

} // namespace ko_player
