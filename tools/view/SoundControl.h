#pragma once

#include <optional>

namespace mediaworker::view {

/// What a volume slider and a mute button mean for one worker. Each operation returns what to tell the
/// worker, or nothing when nothing changes for it.
class SoundControl {
public:
    static constexpr int kStepPercent = 5;
    static constexpr int kDefaultPercent = 80;

    struct Command {
        enum class Kind { SetVolume, StopAudio };
        Kind kind = Kind::SetVolume;
        int percent = 0; ///< of SetVolume
        friend bool operator==(const Command&, const Command&) = default;
    };

    explicit SoundControl(int percent = kDefaultPercent, bool isMuted = false);

    /// Whoever moves the slider wants to hear: that ends a mute.
    [[nodiscard]] std::optional<Command> setPercent(int percent);
    /// A key press: one step up (+1) or down (-1), in multiples of kStepPercent.
    [[nodiscard]] std::optional<Command> step(int direction);
    /// Muted, the worker's sound device is closed.
    [[nodiscard]] std::optional<Command> setMuted(bool isMuted);
    /// A new worker is silent until it is told otherwise.
    [[nodiscard]] std::optional<Command> forNewWorker() const;

    [[nodiscard]] int percent() const noexcept { return percent_; }
    [[nodiscard]] bool isMuted() const noexcept { return isMuted_; }

private:
    int percent_;
    bool isMuted_;
};

} // namespace mediaworker::view
