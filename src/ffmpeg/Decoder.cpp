#include "ffmpeg/Decoder.h"

#include "ffmpeg/Avcodec.h"
#include "ffmpeg/FfmpegError.h"

extern "C" {
#include <libavutil/dict.h>
}

#include <stdexcept>

namespace ko_player::ff_wrap {
namespace {

constexpr int kSliceThreads = 2;

/// Frees the options on every path out of the constructor.
class Options {
public:
    Options() = default;
    Options(const Options&) = delete;
    Options& operator=(const Options&) = delete;
    ~Options() { av_dict_free(&dictionary_); }

    AVDictionary** address() noexcept { return &dictionary_; }

private:
    AVDictionary* dictionary_ = nullptr;
};

} // namespace

void Decoder::Free::operator()(AVCodecContext* context) const noexcept {
    avcodec().avcodec_free_context(&context);
}

Decoder::Decoder(const AVCodecParameters* parameters, AVRational timeBase)
    : context_(avcodec().avcodec_alloc_context3(nullptr)) {
    if (!context_) {
        throw std::runtime_error("Decoder.ctor: avcodec_alloc_context3 failed");
    }
    const int filled = avcodec().avcodec_parameters_to_context(context_.get(), parameters);
    if (filled < 0) {
        throw std::runtime_error("Decoder.ctor: params to context failed: " + errorText(filled));
    }
    context_->pkt_timebase = timeBase;
    // Encoders for low delay cut a picture into slices; two threads halve the wait for its key frames, the
    // first one above all. Unlike threads for whole frames, these hold no picture back. A stream without
    // slices does not use them.
    context_->thread_type = FF_THREAD_SLICE;
    context_->thread_count = context_->codec_type == AVMEDIA_TYPE_VIDEO ? kSliceThreads : 1;
    const AVCodec* codec = avcodec().avcodec_find_decoder(context_->codec_id);
    Options options;
    av_dict_set_int(options.address(), "refcounted_frames", 1, 0);
    const int opened = avcodec().avcodec_open2(context_.get(), codec, options.address());
    if (opened < 0) {
        throw std::runtime_error("Decoder.ctor: avcodec_open failed: " + errorText(opened));
    }
}

} // namespace ko_player::ff_wrap
