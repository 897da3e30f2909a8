#include "records/MediaParams.h"

#include <ostream>

namespace ko_player {

std::ostream& operator<<(std::ostream& out, const VideoParams& params) {
    return out << " fmt: " << params.format << ", w: " << params.width << ", h: " << params.height
               << ", sar: " << params.sampleAspectRatio.num << "/" << params.sampleAspectRatio.den;
}

} // namespace ko_player
