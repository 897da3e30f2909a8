#pragma once

#include "base/Clock.h"
#include "output/StampedSound.h"
#include "output/SyncRule.h"
#include "queues/MediaQueues.h"
#include "queues/PlayerState.h"
#include "records/Handlers.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>

struct AVFrame;

namespace ko_player {

/// Plays sound in step with the pictures: carries out what SyncRule decides. The device's level paces it, and
/// while there is no device, the pictures: sound whose time is over is dropped, so that it is in step when
/// somebody turns it on. Used by the audio output thread only.
class SyncedSound {
public:
    /// What it plays through, and how it converts.
    struct Parts {
        std::shared_ptr<FrameQueue> frames;
        std::shared_ptr<AudioHandler> handler; ///< may be empty
        std::shared_ptr<PlayerState> state;
        /// A frame's sound in the output format, valid until the next call; empty where that fails.
        std::function<std::span<const std::uint8_t>(const AVFrame&)> convert;
        /// Plays what is converted from now on faster by so many millionths.
        std::function<void(int ppm)> setSpeedUp;
    };

    /// Throws std::logic_error "AudioBuffer invalid audio params".
    SyncedSound(Parts parts, const AudioParams& out, base::Clock& clock);

    /// Until the frame queue ends, and what it held is played.
    void play();

private:
    void step();
    /// Nobody hears it.
    void dropInStep();
    void stepWithDevice(const SoundLevel& level);
    void beginOn(const SoundLevel& level);
    void fillEmptyDevice(const SoundLevel& level, double silenceMs);
    void writePart(const SoundLevel& level);
    void waitWhilePaused();
    void drain();

    /// Takes what is there until that much is at hand.
    void fetch(double ms);
    void waitForFrame(double ms);
    void append(const AVFrame& frame);
    void sleep(double ms);
    void write(std::span<const std::uint8_t> bytes);
    [[nodiscard]] SyncRule::Situation situation(double heldMs) const;
    [[nodiscard]] bool isOver();
    [[nodiscard]] double partMs() const;

    const std::shared_ptr<FrameQueue> frames_;
    const std::shared_ptr<AudioHandler> handler_;
    const std::shared_ptr<PlayerState> state_;
    const decltype(Parts::convert) convert_;
    const decltype(Parts::setSpeedUp) setSpeedUp_;
    base::Clock& clock_;

    details::StampedSound sound_;
    SyncRule rule_;
    base::TimePoint validFrom_; ///< pictures shown before that say nothing: there was a pause since
    std::uint64_t device_ = 0;  ///< 0: none
    double capacityMs_ = 0;     ///< of the device
    bool filled_ = false;       ///< the device got what makes it begin to play
    bool played_ = false;       ///< and did
    double silenceMs_ = 0;      ///< to be written before the next part
    base::TimePoint lastWrite_;
};

} // namespace ko_player
