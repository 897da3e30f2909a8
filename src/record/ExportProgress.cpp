#include "record/ExportProgress.h"

#include <algorithm>

namespace ko_player {

ExportProgress::Step ExportProgress::update(std::int64_t dtsMs) {
    if (length_ == LengthPolicy::Expected && dtsMs > durationMs_ + kToleranceMs) {
        return {true, std::nullopt};
    }
    if (durationMs_ <= 0) {
        return {};
    }
    const auto percent = static_cast<std::int32_t>(dtsMs * 100 / durationMs_);
    if (percent == last_) {
        return {};
    }
    last_ = percent;
    return {false, std::clamp(percent, 0, 100)};
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
