#pragma once

#include "records/MediaParams.h"

enum class AspectRule {
    Square,    ///< nothing to stretch
    Stretched, ///< width or height was enlarged
    Ignored,   ///< the aspect ratio makes no sense, the size stays
};

struct PictureGeometry {
    ko_player::VideoParams params;
    AspectRule rule = AspectRule::Square;
};

/// The picture that the parent gets for one of the decoder: BGRA, and stretched to square pixels, to
/// multiples of 16 in the direction that is stretched. The aspect ratio stays in it as it came in.
[[nodiscard]] PictureGeometry pictureGeometry(const ko_player::VideoParams& in);
