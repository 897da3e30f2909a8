#include "player/BufferingRules.h"

#include "base/Saturating.h"

namespace ko_player {
namespace {

constexpr std::int64_t kLaterEndThresholdMs = 500;
constexpr std::int64_t kBeginBelowMs = 100;
constexpr std::int64_t kGuardMs = 1000;

} // namespace

BufferingRules::Action BufferingRules::afterPush(Position position) const noexcept {
    const std::int64_t ahead = base::subtractSaturated(position.newestMs, position.shownMs);
    switch (mode_) {
    case Mode::Off:
        return Action::None;
    case Mode::Buffering:
        return ahead < endThresholdMs_ ? Action::None : Action::Finish;
    case Mode::Playing:
        break;
    }
    return ahead >= kBeginBelowMs || position.shownMs < rebufferGuardMs_ ? Action::None : Action::Begin;
}

bool BufferingRules::begin() noexcept {
    if (mode_ == Mode::Off) {
        return false;
    }
    mode_ = Mode::Buffering;
    return true;
}

bool BufferingRules::finish(std::int64_t newestMs) noexcept {
    if (mode_ == Mode::Off) {
        return false;
    }
    mode_ = Mode::Playing;
    rebufferGuardMs_ = base::addSaturated(newestMs, kGuardMs);
    endThresholdMs_ = kLaterEndThresholdMs;
    return true;
}

} // namespace ko_player
