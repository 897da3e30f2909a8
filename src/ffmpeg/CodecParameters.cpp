#include "ffmpeg/CodecParameters.h"

#include "ffmpeg/Avcodec.h"

extern "C" {
#include <libavutil/mem.h>
}

#include <climits>
#include <cstring>
#include <stdexcept>

namespace ko_player::ff_wrap {

void FreeCodecParameters::operator()(AVCodecParameters* parameters) const noexcept {
    avcodec().avcodec_parameters_free(&parameters);
}

CodecParametersPtr makeCodecParameters() {
    CodecParametersPtr parameters(avcodec().avcodec_parameters_alloc());
    if (!parameters) {
        throw std::runtime_error("avcodec_parameters_alloc failed");
    }
    return parameters;
}

AVCodecParameters* LazyCodecParameters::get() const {
    if (!parameters_) {
        parameters_ = makeCodecParameters();
        parameters_->codec_type = static_cast<AVMediaType>(mediaType_);
    }
    return parameters_.get();
}

void allocExtradata(AVCodecParameters& parameters, std::size_t size) {
    av_freep(&parameters.extradata);
    parameters.extradata_size = 0;
    if (size > static_cast<std::size_t>(INT_MAX) - AV_INPUT_BUFFER_PADDING_SIZE) {
        throw std::runtime_error("allocExtradata failed to alloc side");
    }
    parameters.extradata = static_cast<std::uint8_t*>(av_malloc(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (parameters.extradata == nullptr) {
        throw std::runtime_error("allocExtradata failed to alloc side");
    }
    std::memset(parameters.extradata + size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
    parameters.extradata_size = static_cast<int>(size);
}

} // namespace ko_player::ff_wrap
