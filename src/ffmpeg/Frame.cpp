#include "ffmpeg/Frame.h"

extern "C" {
#include <libavutil/frame.h>
}

#include <stdexcept>

namespace ko_player::ff_wrap {

void Frame::Free::operator()(AVFrame* frame) const noexcept {
    av_frame_free(&frame);
}

Frame::Frame() : frame_(av_frame_alloc()) {
    if (!frame_) {
        throw std::runtime_error("Frame av_frame_alloc failed");
    }
}

} // namespace ko_player::ff_wrap
