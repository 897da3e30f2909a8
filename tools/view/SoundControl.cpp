#include "tools/view/SoundControl.h"

#include <algorithm>

namespace mediaworker::view {

namespace {

int clampPercent(int percent) {
    return std::clamp(percent, 0, 100);
}

} // namespace

SoundControl::SoundControl(int percent, bool isMuted) : percent_(clampPercent(percent)), isMuted_(isMuted) {}

std::optional<SoundControl::Command> SoundControl::setPercent(int percent) {
    percent = clampPercent(percent);
    if (percent == percent_ && !isMuted_) {
        return std::nullopt;
    }
    percent_ = percent;
    isMuted_ = false;
    return Command{Command::Kind::SetVolume, percent_};
}

std::optional<SoundControl::Command> SoundControl::step(int direction) {
    const int below = percent_ - percent_ % kStepPercent;
    const int target = direction > 0                  ? below + kStepPercent
                       : percent_ % kStepPercent != 0 ? below
                                                      : below - kStepPercent;
    return setPercent(target);
}

std::optional<SoundControl::Command> SoundControl::setMuted(bool isMuted) {
    if (isMuted == isMuted_) {
        return std::nullopt;
    }
    isMuted_ = isMuted;
    return isMuted ? Command{Command::Kind::StopAudio, 0} : Command{Command::Kind::SetVolume, percent_};
}

std::optional<SoundControl::Command> SoundControl::forNewWorker() const {
    if (isMuted_) {
        return std::nullopt;
    }
    return Command{Command::Kind::SetVolume, percent_};
}

} // namespace mediaworker::view
