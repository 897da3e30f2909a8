#pragma once

#include "support/media/Clip.h"

namespace mediaworker::bench {

inline constexpr int kWidth = 1920;
inline constexpr int kHeight = 1080;
inline constexpr int kFps = 25;

/// What a good camera sends: 1080p25 H.264 at 8 Mb/s, with some grain.
[[nodiscard]] inline test::ClipSpec fullHd(int frames) {
    test::ClipSpec spec;
    spec.widthPx = kWidth;
    spec.heightPx = kHeight;
    spec.fps = kFps;
    spec.frames = frames;
    spec.gop = 2 * kFps;
    spec.bitrateKbps = 8000;
    spec.noise = 8;
    spec.preset = "veryfast";
    return spec;
}

} // namespace mediaworker::bench
