#include "output/VideoConvert.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <stdexcept>

namespace ko_player {
namespace {

/// For some widths the scaler's assembly writes this much behind the last pixel.
constexpr std::size_t kScalerOverrunBytes = 32;
static_assert(kScalerOverrunBytes <= kPictureTailBytes);

} // namespace

void VideoConvert::FreeContext::operator()(SwsContext* context) const noexcept {
    sws_freeContext(context);
}

VideoConvert::VideoConvert(const VideoParams& in, const VideoParams& out, std::uint8_t* buffer)
    : in_(in), out_(out) {
    const auto inFormat = static_cast<AVPixelFormat>(in.format);
    const auto outFormat = static_cast<AVPixelFormat>(out.format);
    // libswscale aborts the process on a format that is none.
    if (sws_isSupportedInput(inFormat) == 0 || sws_isSupportedOutput(outFormat) == 0) {
        throw std::runtime_error("VideoConvert: sws creating failed");
    }
    // Plain bicubic: accurate rounding and full chroma interpolation would cost fifty times as much per
    // picture.
    context_.reset(sws_getCachedContext(nullptr, in.width, in.height, inFormat, out.width, out.height,
                                        outFormat, SWS_BICUBIC, nullptr, nullptr, nullptr));
    if (!context_) {
        throw std::runtime_error("VideoConvert: sws creating failed");
    }
    bufferSize_ = av_image_get_buffer_size(outFormat, out.width, out.height, 1);
    if (bufferSize_ <= 0) {
        throw std::runtime_error("VideoConvert: out bufSize <= 0");
    }
    av_image_fill_linesizes(lineSizes_.data(), outFormat, out.width);
    if (buffer != nullptr) {
        buffer_ = buffer;
    } else {
        ownBuffer_.resize(static_cast<std::size_t>(bufferSize_) + kPictureTailBytes);
        buffer_ = ownBuffer_.data();
    }
}

int VideoConvert::convert(const AVFrame& frame) {
    std::array<std::uint8_t*, 4> planes{};
    const int filled = av_image_fill_pointers(planes.data(), static_cast<AVPixelFormat>(out_.format),
                                              out_.height, buffer_, lineSizes_.data());
    if (filled < 0) {
        return filled;
    }
    return sws_scale(context_.get(), frame.data, frame.linesize, 0, in_.height, planes.data(),
                     lineSizes_.data());
}

} // namespace ko_player
