#pragma once

#include "records/Handlers.h"

#include <cstdint>
#include <functional>

/// Carries the engine's sound calls to callables; calling one that is not set throws std::bad_function_call.
/// `onAudioParams` is called from the thread that feeds the engine, `onAudioData` from its audio output
/// thread.
class AudioHandler final : public ko_player::AudioHandler {
public:
    struct Callables {
        std::function<bool(const ko_player::AudioParams& in, ko_player::AudioParams& out)> onAudioParams;
        std::function<void(const std::uint8_t* data, int size)> onAudioData;
    };

    explicit AudioHandler(Callables callables);

    bool onAudioParams(const ko_player::AudioParams& in, ko_player::AudioParams& out) override;
    void onAudioData(const std::uint8_t* data, int size) override;

private:
    const Callables callables_;
};
