#pragma once

#include "records/Handlers.h"

#include <cstdint>
#include <functional>
#include <optional>

/// Carries the engine's sound calls to callables; calling one that is not set throws std::bad_function_call.
/// `onAudioParams` is called from the thread that feeds the engine, the others from its audio output thread;
/// the last two only where sound keeps step with the pictures.
class AudioHandler final : public ko_player::AudioHandler {
public:
    struct Callables {
        std::function<bool(const ko_player::AudioParams& in, ko_player::AudioParams& out)> onAudioParams;
        std::function<void(const std::uint8_t* data, int size)> onAudioData;
        std::function<std::optional<ko_player::SoundLevel>()> soundLevel = {};
        std::function<void(bool paused)> onAudioPause = {};
    };

    explicit AudioHandler(Callables callables);

    bool onAudioParams(const ko_player::AudioParams& in, ko_player::AudioParams& out) override;
    void onAudioData(const std::uint8_t* data, int size) override;
    std::optional<ko_player::SoundLevel> soundLevel() override;
    void onAudioPause(bool paused) override;

private:
    const Callables callables_;
};
