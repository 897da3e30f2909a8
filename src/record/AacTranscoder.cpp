#include "record/AacTranscoder.h"

#include "base/Saturating.h"
#include "ffmpeg/Avcodec.h"
#include "ffmpeg/ChannelLayout.h"
#include "ffmpeg/FfmpegError.h"
#include "ffmpeg/Frame.h"

extern "C" {
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libavutil/mathematics.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace ko_player {
namespace {

constexpr AVRational kMilliseconds{1, 1000};
/// ISO/IEC 14496-3, samplingFrequencyIndex.
constexpr std::array kAacRates{7350,  8000,  11025, 12000, 16000, 22050, 24000,
                               32000, 44100, 48000, 64000, 88200, 96000};
constexpr int kMostBitsPerSecond = 64'000;
/// Speech at 8 kHz keeps what G.711 has with half of the bits that it took.
constexpr int kBitsPerSample = 4;
/// Stamps of telephone sound are no better than this; within it the sound is one piece.
constexpr int kToleranceMs = 60;

int aacRateFor(int sourceRate) {
    const auto* const found = std::lower_bound(kAacRates.begin(), kAacRates.end(), sourceRate);
    return found == kAacRates.end() ? kAacRates.back() : *found;
}

void require(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error(std::string("AacTranscoder: ") + what + ": " + ff_wrap::errorText(result));
    }
}

template <class Pointer>
Pointer require(Pointer pointer, const char* what) {
    if (pointer == nullptr) {
        throw std::runtime_error(std::string("AacTranscoder: ") + what);
    }
    return pointer;
}

} // namespace

void AacTranscoder::FreeContext::operator()(AVCodecContext* context) const noexcept {
    ff_wrap::avcodec().avcodec_free_context(&context);
}

void AacTranscoder::FreeConverter::operator()(SwrContext* context) const noexcept {
    swr_free(&context);
}

void AacTranscoder::FreeFifo::operator()(AVAudioFifo* fifo) const noexcept {
    av_audio_fifo_free(fifo);
}

bool AacTranscoder::isNeededFor(int codecId) {
    return codecId == AV_CODEC_ID_PCM_ALAW || codecId == AV_CODEC_ID_PCM_MULAW;
}

AacTranscoder::AacTranscoder(const AVCodecParameters& source) : decoder_(&source, kMilliseconds) {
    openEncoder(source.sample_rate);
    openConverter();
    fifo_.reset(require(av_audio_fifo_alloc(encoder_->sample_fmt, 1, encoder_->frame_size), "no memory"));
    parameters_ = ff_wrap::makeCodecParameters();
    require(ff_wrap::avcodec().avcodec_parameters_from_context(parameters_.get(), encoder_.get()),
            "no parameters");
}

AacTranscoder::~AacTranscoder() = default;

void AacTranscoder::openEncoder(int sourceRate) {
    const ff_wrap::Avcodec& lib = ff_wrap::avcodec();
    const AVCodec* codec = require(lib.avcodec_find_encoder(AV_CODEC_ID_AAC), "no AAC encoder");
    encoder_.reset(require(lib.avcodec_alloc_context3(codec), "no memory"));
    encoder_->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder_->sample_rate = aacRateFor(sourceRate);
    encoder_->ch_layout = ff_wrap::layoutFromMask(AV_CH_LAYOUT_MONO, 1);
    encoder_->bit_rate = std::min(kMostBitsPerSecond, encoder_->sample_rate * kBitsPerSample);
    encoder_->time_base = {1, encoder_->sample_rate};
    encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER; // MP4 keeps the configuration apart
    // The other coders search longer for bits to save than all the rest of a recording takes.
    static_cast<void>(av_opt_set(encoder_->priv_data, "aac_coder", "fast", 0));
    require(lib.avcodec_open2(encoder_.get(), codec, nullptr), "the encoder does not open");
}

void AacTranscoder::openConverter() {
    const AVCodecContext& in = *decoder_.context();
    AVChannelLayout inLayout =
        ff_wrap::layoutFromMask(ff_wrap::maskOf(in.ch_layout), in.ch_layout.nb_channels);
    SwrContext* converter = nullptr;
    require(swr_alloc_set_opts2(&converter, &encoder_->ch_layout, encoder_->sample_fmt, encoder_->sample_rate,
                                &inLayout, in.sample_fmt, in.sample_rate, 0, nullptr),
            "no converter");
    converter_.reset(converter);
    require(swr_init(converter), "the converter does not open");
}

int AacTranscoder::bufferedSamples() const {
    return av_audio_fifo_size(fifo_.get());
}

void AacTranscoder::take(const AVPacket& packet, const Sink& sink) {
    const ff_wrap::Avcodec& lib = ff_wrap::avcodec();
    const std::int64_t position = av_rescale_q(packet.dts, kMilliseconds, encoder_->time_base);
    place(position, sink);
    const std::int64_t reached = base::addSaturated(position_, bufferedSamples());
    if (position <
        base::subtractSaturated(reached, av_rescale_q(kToleranceMs, kMilliseconds, encoder_->time_base))) {
        return;
    }
    if (lib.avcodec_send_packet(decoder_.context(), &packet) < 0) {
        return;
    }
    for (ff_wrap::Frame frame; lib.avcodec_receive_frame(decoder_.context(), frame.get()) >= 0;) {
        append(*frame.get());
        encodeFullFrames(sink);
    }
}

/// Moves on to where the next sound belongs, where that is behind a gap.
void AacTranscoder::place(std::int64_t position, const Sink& sink) {
    if (!hasPosition_) {
        hasPosition_ = true;
        position_ = position;
        return;
    }
    const std::int64_t gap =
        base::subtractSaturated(position, base::addSaturated(position_, bufferedSamples()));
    if (gap <= av_rescale_q(kToleranceMs, kMilliseconds, encoder_->time_base)) {
        return;
    }
    const std::int64_t missing = encoder_->frame_size - bufferedSamples();
    appendSilence(static_cast<int>(std::min(gap, missing)));
    encodeFullFrames(sink);
    if (gap > missing) {
        position_ = position;
    }
}

void AacTranscoder::append(const AVFrame& decoded) {
    ff_wrap::Frame converted;
    converted->format = encoder_->sample_fmt;
    converted->sample_rate = encoder_->sample_rate;
    converted->ch_layout = ff_wrap::layoutFromMask(AV_CH_LAYOUT_MONO, 1);
    require(swr_convert_frame(converter_.get(), converted.get(), &decoded), "conversion failed");
    if (converted->nb_samples > 0) {
        require(av_audio_fifo_write(fifo_.get(), reinterpret_cast<void**>(converted->extended_data),
                                    converted->nb_samples),
                "no memory");
    }
}

void AacTranscoder::appendSilence(int samples) {
    std::vector<float> silence(static_cast<std::size_t>(samples));
    void* plane = silence.data();
    require(av_audio_fifo_write(fifo_.get(), &plane, samples), "no memory");
}

void AacTranscoder::encodeFullFrames(const Sink& sink) {
    while (bufferedSamples() >= encoder_->frame_size) {
        encode(encoder_->frame_size, sink);
    }
}

void AacTranscoder::encode(int samples, const Sink& sink) {
    ff_wrap::Frame frame;
    frame->format = encoder_->sample_fmt;
    frame->sample_rate = encoder_->sample_rate;
    frame->ch_layout = ff_wrap::layoutFromMask(AV_CH_LAYOUT_MONO, 1);
    frame->nb_samples = samples;
    require(av_frame_get_buffer(frame.get(), 0), "no memory");
    require(av_audio_fifo_read(fifo_.get(), reinterpret_cast<void**>(frame->extended_data), samples),
            "no memory");
    frame->pts = position_;
    position_ = base::addSaturated(position_, samples);
    require(ff_wrap::avcodec().avcodec_send_frame(encoder_.get(), frame.get()), "encoding failed");
    receive(sink);
}

void AacTranscoder::receive(const Sink& sink) {
    for (;;) {
        auto packet = std::make_shared<ff_wrap::Packet>();
        if (ff_wrap::avcodec().avcodec_receive_packet(encoder_.get(), packet->get()) < 0) {
            return;
        }
        sink(std::move(packet));
    }
}

void AacTranscoder::finish(const Sink& sink) {
    if (bufferedSamples() > 0) {
        encode(bufferedSamples(), sink);
    }
    ff_wrap::avcodec().avcodec_send_frame(encoder_.get(), nullptr);
    receive(sink);
}

} // namespace ko_player
