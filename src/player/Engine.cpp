#include "player/Engine.h"

#include "ffmpeg/Avcodec.h"
#include "ffmpeg/FfmpegLog.h"

#include <exception>

namespace ko_player {

void installEngineLog() noexcept {
    ff_wrap::installFfmpegLog();
}

void loadCodecs() noexcept {
    try {
        static_cast<void>(ff_wrap::avcodec());
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
        // Whoever needs a codec first meets the same failure, and reports it where it matters.
    }
}

} // namespace ko_player
