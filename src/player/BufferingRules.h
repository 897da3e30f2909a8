#pragma once

#include <cstdint>

namespace ko_player {

/// When presentation pauses because too little video is queued ahead of the picture on screen, and when it
/// goes on. A pure rule.
class BufferingRules {
public:
    enum class Mode { Off, Buffering, Playing };
    enum class Action { None, Begin, Finish };

    [[nodiscard]] Mode mode() const noexcept { return mode_; }
    [[nodiscard]] bool isBuffering() const noexcept { return mode_ == Mode::Buffering; }

    /// On: as if already buffering, so that begin() takes effect.
    void enable(bool wanted) noexcept { mode_ = wanted ? Mode::Buffering : Mode::Off; }

    /// Time stamps in milliseconds.
    struct Position {
        std::int64_t newestMs = 0; ///< of the newest video packet received, "l"
        std::int64_t shownMs = 0;  ///< of the picture last shown, "p"
    };

    /// What to do after a video packet was queued.
    [[nodiscard]] Action afterPush(Position position) const noexcept;

    /// False when buffering is off: nothing begins.
    [[nodiscard]] bool begin() noexcept;
    /// False when buffering is off: nothing to resume.
    [[nodiscard]] bool finish(std::int64_t newestMs) noexcept;

private:
    Mode mode_ = Mode::Off;
    std::int64_t endThresholdMs_ = 1000; ///< 500 after the first end: only the start waits for more
    /// The shown stamp must have reached this before buffering begins again.
    std::int64_t rebufferGuardMs_ = 0;
};

} // namespace ko_player
