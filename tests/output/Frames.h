#pragma once

#include "ffmpeg/Frame.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>

/// Decoded frames made by hand.
namespace mediaworker::test {

inline std::shared_ptr<ko_player::ff_wrap::Frame> makePicture(std::int64_t pts, int width = 64,
                                                              int height = 48,
                                                              int format = AV_PIX_FMT_YUV420P,
                                                              std::uint8_t luma = 128) {
    auto frame = std::make_shared<ko_player::ff_wrap::Frame>();
    AVFrame* picture = frame->get();
    picture->width = width;
    picture->height = height;
    picture->format = format;
    picture->pts = pts;
    if (av_frame_get_buffer(picture, 0) < 0) {
        throw std::runtime_error("no picture buffer");
    }
    for (int plane = 0; plane < 3 && picture->data[plane] != nullptr; ++plane) {
        const int rows = plane == 0 ? height : (height + 1) / 2;
        std::memset(picture->data[plane], plane == 0 ? luma : 128,
                    static_cast<std::size_t>(picture->linesize[plane]) * static_cast<std::size_t>(rows));
    }
    return frame;
}

/// Sound whose bytes count up from `first`.
inline std::shared_ptr<ko_player::ff_wrap::Frame> makeSound(std::int64_t pts, int samples, int rate = 8000,
                                                            int channels = 1, int format = AV_SAMPLE_FMT_S16,
                                                            std::uint8_t first = 0) {
    auto frame = std::make_shared<ko_player::ff_wrap::Frame>();
    AVFrame* sound = frame->get();
    sound->nb_samples = samples;
    sound->sample_rate = rate;
    sound->format = format;
    sound->pts = pts;
    av_channel_layout_default(&sound->ch_layout, channels);
    if (av_frame_get_buffer(sound, 0) < 0) {
        throw std::runtime_error("no sound buffer");
    }
    const bool planar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(format)) != 0;
    const int bytes = av_samples_get_buffer_size(nullptr, planar ? 1 : channels, samples,
                                                 static_cast<AVSampleFormat>(format), 1);
    for (int plane = 0; plane < (planar ? channels : 1); ++plane) {
        for (int i = 0; i < bytes; ++i) {
            sound->extended_data[plane][i] = static_cast<std::uint8_t>(first + i);
        }
    }
    return frame;
}

} // namespace mediaworker::test
