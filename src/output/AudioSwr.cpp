#include "output/AudioSwr.h"

#include "ffmpeg/ChannelLayout.h"
#include "ffmpeg/FfmpegError.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <climits>

namespace ko_player {
namespace {

/// Room for what the resampler holds back and returns later.
constexpr int kResamplerMarginSamples = 256;
/// More than the longest tag of G.711 has (ten minutes). A short frame gets there only by a change of rate
/// that is made for it.
constexpr int kMostOutputBytes = 16 << 20;
constexpr int kMillion = 1'000'000;
constexpr int kCompensationSeconds = 10;
constexpr int kMostRate = INT_MAX / kCompensationSeconds;

std::uint64_t inputLayoutMask(const AVFrame& frame) {
    const int channels = frame.ch_layout.nb_channels;
    const std::uint64_t mask = ff_wrap::maskOf(frame.ch_layout);
    return mask != 0 && ff_wrap::channelsOfMask(mask) == channels ? mask
                                                                  : ff_wrap::defaultLayoutMask(channels);
}

} // namespace

void AudioSwr::FreeContext::operator()(SwrContext* context) const noexcept {
    swr_free(&context);
}

AudioSwr::AudioSwr(const AudioParams& out)
    : in_{out.format, out.sampleRate, out.channels, out.channelLayout}, out_(in_) {}

std::pair<int, const std::uint8_t*> AudioSwr::convert(const AVFrame& frame) {
    // A new configuration in mid-stream may say any rate, and a frame of 1 Hz would last for ever.
    if (!isSampleRate(frame.sample_rate) || frame.nb_samples < 0) {
        return {AVERROR(EINVAL), nullptr};
    }
    try {
        const Format format{frame.format, frame.sample_rate, frame.ch_layout.nb_channels,
                            inputLayoutMask(frame)};
        if (format != in_ || (speedUpPpm_ != 0 && !context_)) {
            context_ = makeContext(format);
            in_ = format;
        }
        compensate();
        return context_ ? resample(frame) : passThrough(frame);
    } catch (const ff_wrap::FfmpegError& error) {
        return {error.code(), nullptr};
    }
}

AudioSwr::ContextPtr AudioSwr::makeContext(const Format& in) const {
    // FFmpeg 5.1 takes these as non-const.
    AVChannelLayout outLayout = ff_wrap::layoutFromMask(out_.channelLayout, out_.channels);
    AVChannelLayout inLayout = ff_wrap::layoutFromMask(in.channelLayout, in.channels);
    SwrContext* made = nullptr;
    const int allocated = swr_alloc_set_opts2(
        &made, &outLayout, static_cast<AVSampleFormat>(out_.sampleFormat), out_.sampleRate, &inLayout,
        static_cast<AVSampleFormat>(in.sampleFormat), in.sampleRate, 0, nullptr);
    ContextPtr context(made);
    if (allocated < 0 || !context) {
        throw ff_wrap::FfmpegError("AudioSwr: alloc failed", AVERROR(ENOMEM));
    }
    const int initialised = swr_init(context.get());
    if (initialised < 0) {
        throw ff_wrap::FfmpegError("AudioSwr: init failed: ", initialised);
    }
    return context;
}

void AudioSwr::compensate() {
    // Before the first time nothing is resampled that need not be; after it, a change back would be heard.
    compensates_ = compensates_ || speedUpPpm_ != 0;
    if (!compensates_ || !context_) {
        return;
    }
    // Renewed with every frame, so that it never runs out; the distance only has to give whole samples.
    const int distance =
        out_.sampleRate < kMostRate ? out_.sampleRate * kCompensationSeconds : out_.sampleRate;
    const auto delta = static_cast<int>(std::int64_t{-1} * speedUpPpm_ * distance / kMillion);
    compensates_ = swr_set_compensation(context_.get(), delta, distance) >= 0;
}

std::pair<int, const std::uint8_t*> AudioSwr::passThrough(const AVFrame& frame) const {
    const auto format = static_cast<AVSampleFormat>(frame.format);
    // The channels of a planar frame lie in separate buffers: plane 0 alone does not hold the bytes.
    if (av_sample_fmt_is_planar(format) != 0 && frame.ch_layout.nb_channels > 1) {
        return {AVERROR(EINVAL), nullptr};
    }
    const int size =
        av_samples_get_buffer_size(nullptr, frame.ch_layout.nb_channels, frame.nb_samples, format, 1);
    return {size, size < 1 ? nullptr : frame.data[0]};
}

std::pair<int, const std::uint8_t*> AudioSwr::resample(const AVFrame& frame) {
    const auto outFormat = static_cast<AVSampleFormat>(out_.sampleFormat);
    const std::int64_t capacity =
        static_cast<std::int64_t>(out_.sampleRate) * frame.nb_samples / frame.sample_rate +
        kResamplerMarginSamples;
    if (capacity > INT_MAX) {
        return {AVERROR(EINVAL), nullptr};
    }
    const int capacitySamples = static_cast<int>(capacity);
    const int capacityBytes =
        av_samples_get_buffer_size(nullptr, out_.channels, capacitySamples, outFormat, 0);
    if (capacityBytes < 1) {
        return {capacityBytes, nullptr};
    }
    if (capacityBytes > kMostOutputBytes) {
        return {AVERROR(EINVAL), nullptr};
    }
    if (output_.size() < static_cast<std::size_t>(capacityBytes)) {
        output_.resize(static_cast<std::size_t>(capacityBytes));
    }
    planes_.resize(static_cast<std::size_t>(out_.channels));
    const int filled = av_samples_fill_arrays(planes_.data(), nullptr, output_.data(), out_.channels,
                                              capacitySamples, outFormat, 0);
    if (filled < 0) {
        return {filled, nullptr};
    }
    const int samples = swr_convert(context_.get(), planes_.data(), capacitySamples,
                                    const_cast<const std::uint8_t**>(frame.extended_data), frame.nb_samples);
    if (samples < 0) {
        return {samples, nullptr};
    }
    const int size = av_get_bytes_per_sample(outFormat) * out_.channels * samples;
    return {size, size < 1 ? nullptr : output_.data()};
}

} // namespace ko_player
