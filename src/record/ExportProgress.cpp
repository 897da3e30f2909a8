#include "record/ExportProgress.h"

#include <algorithm>

namespace ko_player {

ExportProgress::Step ExportProgress::update(std::int64_t dtsMs) {
    if (dtsMs > durationMs_ + kToleranceMs) {
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

} // namespace ko_player
