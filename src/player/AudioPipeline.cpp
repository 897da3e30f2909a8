#include "player/AudioPipeline.h"

#include "base/Log.h"
#include "ffmpeg/ChannelLayout.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/rational.h>
#include <libavutil/samplefmt.h>
}

#include <stdexcept>
#include <utility>

namespace ko_player {
namespace {

/// The memory is enough for five minutes of packets of 20 ms and more. Only those with next to nothing in
/// them reach it before they reach the other bound.
constexpr details::ChannelRoom kPacketRoom{.payloadBytes = 0x100000, .memoryBytes = 0x1000000};
/// Sound that keeps step with the pictures waits as long as they do, so it gets as much room.
constexpr details::ChannelRoom kPacketRoomInStep{.payloadBytes = 0x800000, .memoryBytes = 0x1000000};
constexpr std::size_t kFrameCapacity = 100;
/// A hundred frames of any codec's usual sound, eight channels of HE-AAC included. A tag of G.711 can hold
/// ten minutes.
constexpr std::size_t kFrameCapacityBytes = 0x800000;
constexpr AVRational kMilliseconds{1, 1000};
constexpr std::uint64_t kPacketsPerLogLine = 1000;
constexpr std::uint64_t kStereoDownmix = AV_CH_STEREO_LEFT | AV_CH_STEREO_RIGHT;
static_assert(kStereoDownmix == 0x60000000);

AudioParams inputParams(int format, int sampleRate, const AVChannelLayout& layout) {
    const std::uint64_t mask = ff_wrap::maskOf(layout);
    AudioParams in;
    in.format = format;
    in.sampleRate = sampleRate;
    in.channels = layout.nb_channels;
    in.channelLayout = mask != 0 && ff_wrap::channelsOfMask(mask) == in.channels
                           ? mask
                           : ff_wrap::defaultLayoutMask(in.channels);
    if (in.channelLayout != mask) {
        in.channelLayout &= ~kStereoDownmix;
        in.channels = ff_wrap::channelsOfMask(in.channelLayout);
    }
    return in;
}

} // namespace

AudioPipeline::AudioPipeline(std::shared_ptr<AudioHandler> handler, std::shared_ptr<PlayerState> state,
                             base::Clock& clock, DecodeRules rules)
    : rules_(rules), state_(std::move(state)),
      packets_(std::make_shared<PacketChannel>(state_->shown ? kPacketRoomInStep : kPacketRoom)),
      frames_(std::make_shared<FrameQueue>(kFrameCapacity, bytesUpTo(kFrameCapacityBytes))),
      handler_(std::move(handler)), clock_(clock) {}

bool AudioPipeline::open(const AVCodecParameters* parameters) {
    if (decoder_) {
        throw std::logic_error("AudioPipeline::open second call");
    }
    auto decoder = std::make_unique<ff_wrap::Decoder>(parameters, kMilliseconds);
    const AVCodecContext& context = *decoder->context();
    const AudioParams in =
        rules_.exactSoundParameters
            ? inputParams(context.sample_fmt, parameters->sample_rate, parameters->ch_layout)
            : inputParams(context.sample_fmt, context.sample_rate, context.ch_layout);
    AudioParams out;
    // Not even the device is to see a rate that nothing has.
    if (isSampleRate(in.sampleRate) && !getOutParams(in, out)) {
        return false;
    }
    const auto format = static_cast<AVSampleFormat>(out.format);
    out.frameSize = av_samples_get_buffer_size(nullptr, out.channels, 1, format, 1);
    out.bytesPerSecond = av_samples_get_buffer_size(nullptr, out.channels, out.sampleRate, format, 1);
    if (!isSampleRate(out.sampleRate) || out.frameSize < 1 || out.bytesPerSecond < 1) {
        throw std::logic_error("AudioPipeline: bad out parameters");
    }
    // Both or none, where a thread cannot be started: nobody would end a decoder without an output.
    auto queued =
        std::make_unique<QueuedDecoder>(std::move(decoder), packets_, frames_, "audio decoder", rules_);
    output_ = std::make_unique<AudioOutput>(frames_, out, handler_, state_, clock_);
    decoder_ = std::move(queued);
    base::logAt("ko_player::AudioPipeline::open", "AudioPipeline has been openned");
    return true;
}

bool AudioPipeline::getOutParams(const AudioParams& in, AudioParams& out) {
    if (!handler_) {
        out = in;
        return true;
    }
    if (!handler_->onAudioParams(in, out)) {
        base::logAt("ko_player::AudioPipeline::getOutParams", "outHandler.onAudioParams return false");
        return false;
    }
    return true;
}

void AudioPipeline::countPacket() {
    ++packetCount_;
    if (packetCount_ % kPacketsPerLogLine == 0) {
        base::logAt("ko_player::AudioPipeline::push", "AudioPipeline pack count: ", packetCount_);
    }
}

details::PushResult AudioPipeline::push(const std::shared_ptr<ff_wrap::Packet>& packet,
                                        details::Blocking blocking) {
    return packets_->push(packet, blocking);
}

void AudioPipeline::close() {
    packets_->close();
    if (!decoder_) {
        frames_->abort();
    }
}

void AudioPipeline::joinDecoder() {
    if (decoder_) {
        decoder_->join();
    }
}

void AudioPipeline::joinOutput() {
    if (output_) {
        output_->join();
    }
}

} // namespace ko_player
