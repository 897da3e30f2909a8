#include "record/ExportProgress.h"

#include "base/Saturating.h"

#include <algorithm>
#include <limits>

namespace ko_player {

ExportProgress::Step ExportProgress::update(std::int64_t dtsMs) {
    if (dtsMs > base::addSaturated(durationMs_, kToleranceMs)) {
        return {true, std::nullopt};
    }
    if (durationMs_ <= 0) {
        return {};
    }
    constexpr std::int64_t kMostMs = std::numeric_limits<std::int64_t>::max() / 100;
    const auto percent = static_cast<std::int32_t>(std::clamp(dtsMs, -kMostMs, kMostMs) * 100 / durationMs_);
    if (percent == last_) {
        return {};
    }
    last_ = percent;
    return {false, std::clamp(percent, 0, 100)};
}

} // namespace ko_player
