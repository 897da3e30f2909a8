#include "sound/SoundModule.h"
#include "sound/module/QtAudioDevice.h"

#include <type_traits>

extern "C" Q_DECL_EXPORT AudioDevice* mediaworker_sound_2(const PcmFormat* format) {
    return makeQtAudioDevice(*format).release();
}

static_assert(std::is_same_v<decltype(&mediaworker_sound_2), SoundEntry>);
