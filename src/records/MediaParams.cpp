#include "records/MediaParams.h"

#include "ffmpeg/ChannelLayout.h"

extern "C" {
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

#include <ostream>

namespace ko_player {

const int kBgra = AV_PIX_FMT_BGRA;

AudioParams deviceParams(const AudioParams& in) {
    AudioParams out;
    out.format = AV_SAMPLE_FMT_S16;
    out.sampleRate = in.sampleRate;
    out.channels = in.channels;
    out.channelLayout = ff_wrap::defaultLayoutMask(in.channels);
    return out;
}

std::ostream& operator<<(std::ostream& out, const VideoParams& params) {
    return out << " fmt: " << params.format << ", w: " << params.width << ", h: " << params.height
               << ", sar: " << params.sampleAspectRatio.num << "/" << params.sampleAspectRatio.den;
}

} // namespace ko_player
