#include "output/SyncedSound.h"

extern "C" {
#include <libavutil/frame.h>
}

#include <algorithm>
#include <chrono>
#include <utility>

namespace ko_player {
namespace {

using std::chrono::milliseconds;

constexpr double kPartMs = 100;
/// Where the device holds so little, sound is written as it comes.
constexpr double kSmallPartMs = 20;
constexpr double kSmallDeviceMs = 150;
/// While a device has not begun to play, when it does so is watched this closely: everything that it holds
/// later is reckoned from there.
constexpr double kWatchMs = 5;
/// A device that wants more than it told before it plays gets more.
constexpr milliseconds kReluctance{80};
/// One that does not play at all must not stop the stream: its sound goes by.
constexpr milliseconds kGivenUp{3000};
constexpr double kLeastRoomMs = 5;
/// Sound may be early because the pictures are about to leap over a gap in the stream, which they do not sit
/// out: so it waits for a short time, and then is looked at anew.
constexpr double kLongestSilenceMs = 200;
constexpr double kShortWaitMs = 20;
constexpr double kLongestSleepMs = 100;
constexpr double kLongestDrainMs = 1000;

constexpr SyncBounds kOrdinaryBounds{};
/// Sound that is played as it comes is late by what the device holds; nothing can make it sooner.
constexpr SyncBounds kSmallDeviceBounds{.early = -40,
                                        .late = 105,
                                        .lateAtBegin = 95,
                                        .aim = 60,
                                        .lateBehindHurry = 105,
                                        .aimBehindHurry = 60,
                                        .keepsWhatItFinds = true};

} // namespace

SyncedSound::SyncedSound(Parts parts, const AudioParams& out, base::Clock& clock)
    : frames_(std::move(parts.frames)), handler_(std::move(parts.handler)), state_(std::move(parts.state)),
      convert_(std::move(parts.convert)), setSpeedUp_(std::move(parts.setSpeedUp)), clock_(clock),
      sound_(out) {}

double SyncedSound::partMs() const {
    return capacityMs_ > 0 && capacityMs_ < kSmallDeviceMs ? kSmallPartMs : kPartMs;
}

void SyncedSound::play() {
    while (!state_->pauseCtrl->isStopped() && !isOver()) {
        step();
    }
    drain();
}

bool SyncedSound::isOver() {
    if (!frames_->isEnded()) {
        return false;
    }
    fetch(partMs());
    return sound_.empty();
}

void SyncedSound::step() {
    waitWhilePaused();
    const std::optional<SoundLevel> level = handler_ ? handler_->soundLevel() : std::nullopt;
    if (!level) {
        device_ = 0;
        dropInStep();
        return;
    }
    if (level->device != device_) {
        beginOn(*level);
    }
    stepWithDevice(*level);
}

void SyncedSound::waitWhilePaused() {
    if (!state_->pauseCtrl->isPaused()) {
        return;
    }
    if (handler_) {
        handler_->onAudioPause(true);
    }
    static_cast<void>(state_->pauseCtrl->wait());
    if (handler_) {
        handler_->onAudioPause(false);
    }
    validFrom_ = clock_.now();
    rule_.restart(validFrom_);
}

void SyncedSound::dropInStep() {
    fetch(kPartMs);
    if (sound_.empty()) {
        waitForFrame(kShortWaitMs);
        return;
    }
    const std::optional<double> lateMs = rule_.lateness(situation(0));
    if (!lateMs) {
        sound_.drop(kPartMs);
        sleep(kPartMs);
    } else if (*lateMs < kPartMs) { // what is gone by goes a part at a time, and nothing of what is to come
        sleep(kPartMs - *lateMs);
    } else {
        sound_.drop(*lateMs);
    }
}

void SyncedSound::beginOn(const SoundLevel& level) {
    device_ = level.device;
    capacityMs_ = level.capacityMs;
    filled_ = played_ = false;
    silenceMs_ = 0;
    rule_.setBounds(capacityMs_ < kSmallDeviceMs ? kSmallDeviceBounds : kOrdinaryBounds);
    rule_.restart(clock_.now());
}

void SyncedSound::stepWithDevice(const SoundLevel& level) {
    if (played_ && !level.isPlaying) { // it ran dry
        filled_ = played_ = false;
        rule_.restart(clock_.now());
    }
    played_ = level.isPlaying;
    if (level.isPlaying) {
        // A sound server may hold in its own buffers nearly as much again, and takes that all at once.
        const double excessMs = level.heldMs - capacityMs_;
        if (excessMs > 0 || level.roomMs < partMs()) {
            sleep(std::max(excessMs, kShortWaitMs));
            return;
        }
    } else if (filled_ && clock_.now() - lastWrite_ > kGivenUp) {
        dropInStep();
        return;
    } else if (filled_ && (clock_.now() - lastWrite_ < kReluctance || level.roomMs < kLeastRoomMs)) {
        sleep(kWatchMs);
        return;
    }
    writePart(level);
}

void SyncedSound::writePart(const SoundLevel& level) {
    const double wantedMs = filled_ ? std::min(partMs(), level.roomMs) : level.roomMs;
    if (silenceMs_ > 0) {
        const double ms = std::min(silenceMs_, wantedMs);
        silenceMs_ -= ms;
        write(sound_.silence(ms));
        return;
    }
    fetch(wantedMs);
    const bool isShort = sound_.durationMs() < std::min(wantedMs, partMs());
    if (isShort && !frames_->isEnded() &&
        (!level.isPlaying || level.heldMs > partMs() / 2 || sound_.empty())) {
        waitForFrame(kShortWaitMs);
        return;
    }
    const double leadMs = filled_ ? 0 : std::max(0.0, level.roomMs - sound_.durationMs());
    const SyncRule::Decision decision = rule_.next(situation(level.heldMs + leadMs));
    switch (decision.action) {
    case SyncRule::Action::Skip:
        sound_.skip(decision.ms);
        return;
    case SyncRule::Action::Wait:
        if (filled_) {
            silenceMs_ = std::min(decision.ms, kLongestSilenceMs);
            if (silenceMs_ < decision.ms) {
                rule_.restart(clock_.now());
            }
        } else if (decision.ms + leadMs > level.roomMs) {
            sleep(decision.ms + leadMs - level.roomMs);
        } else {
            fillEmptyDevice(level, decision.ms + leadMs);
        }
        return;
    case SyncRule::Action::Write:
    case SyncRule::Action::WriteFree:
        setSpeedUp_(rule_.speedUpPpm());
        if (filled_) {
            write(sound_.take(wantedMs));
        } else {
            fillEmptyDevice(level, leadMs);
        }
        return;
    }
}

void SyncedSound::fillEmptyDevice(const SoundLevel& level, double silenceMs) {
    lastWrite_ = clock_.now();
    write(sound_.silence(silenceMs));
    if (level.roomMs - silenceMs > kLeastRoomMs) { // a write to a full device would wait
        write(sound_.take(level.roomMs - silenceMs));
    }
    filled_ = true;
}

void SyncedSound::drain() {
    const base::TimePoint end =
        base::addClamped(clock_.now(), milliseconds(static_cast<int>(kLongestDrainMs)));
    while (!state_->pauseCtrl->isStopped() && clock_.now() < end) {
        const std::optional<SoundLevel> level = handler_ ? handler_->soundLevel() : std::nullopt;
        if (!level || !level->isPlaying) {
            return;
        }
        sleep(level->heldMs);
    }
}

SyncRule::Situation SyncedSound::situation(double heldMs) const {
    std::optional<ShownPicture> shown = state_->shown->last();
    if (shown && shown->when < validFrom_) {
        shown.reset();
    }
    return {.stampMs = sound_.stampMs(), .shown = shown, .now = clock_.now(), .heldMs = heldMs};
}

void SyncedSound::fetch(double ms) {
    while (sound_.durationMs() < ms) {
        const auto frame = frames_->tryPop();
        if (!frame) {
            return;
        }
        append(*(*frame)->get());
    }
}

void SyncedSound::waitForFrame(double ms) {
    auto why = details::NoElement::Ended;
    const auto deadline = clock_.now() + std::chrono::duration_cast<base::nanoseconds>(
                                             std::chrono::duration<double, std::milli>(ms));
    if (const auto frame = frames_->waitPopUntil(clock_, deadline, why)) {
        append(*(*frame)->get());
    }
}

void SyncedSound::append(const AVFrame& frame) {
    const auto bytes = convert_(frame);
    sound_.append(bytes.data(), bytes.size(), frame.pts);
}

void SyncedSound::sleep(double ms) {
    const auto duration = std::chrono::duration<double, std::milli>(std::clamp(ms, 1.0, kLongestSleepMs));
    state_->pauseCtrl->sleepUntil(
        clock_, base::addClamped(clock_.now(), std::chrono::duration_cast<base::nanoseconds>(duration)));
}

void SyncedSound::write(std::span<const std::uint8_t> bytes) {
    if (!bytes.empty()) {
        handler_->onAudioData(bytes.data(), static_cast<int>(bytes.size()));
        lastWrite_ = clock_.now();
    }
}

} // namespace ko_player
