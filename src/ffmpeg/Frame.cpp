#include "ffmpeg/Frame.h"

extern "C" {
#include <libavutil/buffer.h>
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

std::size_t Frame::heldBytes() const noexcept {
    std::size_t bytes = 0;
    for (const AVBufferRef* buffer : frame_->buf) {
        bytes += buffer != nullptr ? buffer->size : 0;
    }
    for (int i = 0; i < frame_->nb_extended_buf; ++i) {
        bytes += frame_->extended_buf[i]->size;
    }
    return bytes;
}

void Frame::dropSideData() noexcept {
    while (frame_->nb_side_data > 0) {
        av_frame_remove_side_data(frame_.get(), frame_->side_data[0]->type);
    }
}

} // namespace ko_player::ff_wrap
