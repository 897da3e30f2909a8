#include "sound/AudioHandler.h"

#include <utility>

AudioHandler::AudioHandler(Callables callables) : callables_(std::move(callables)) {}

bool AudioHandler::onAudioParams(const ko_player::AudioParams& in, ko_player::AudioParams& out) {
    return callables_.onAudioParams(in, out);
}

void AudioHandler::onAudioData(const std::uint8_t* data, int size) {
    callables_.onAudioData(data, size);
}

std::optional<ko_player::SoundLevel> AudioHandler::soundLevel() {
    return callables_.soundLevel();
}

void AudioHandler::onAudioPause(bool paused) {
    callables_.onAudioPause(paused);
}
