#include "record/SoundTrack.h"

#include "base/Log.h"
#include "flv/CodecMapping.h"
#include "record/SampleFitting.h"

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavcodec/packet.h>
#include <libavutil/mathematics.h>
}

#include <stdexcept>
#include <utility>

namespace ko_player {
namespace {

constexpr AVRational kMilliseconds{1, 1000};

/// Frames of Opus and FLAC differ in length, and those of Opus are whole milliseconds anyway.
bool hasEqualFrames(int codecId) {
    return codecId != AV_CODEC_ID_OPUS && codecId != AV_CODEC_ID_FLAC;
}

} // namespace

SoundTrack::SoundTrack(const AVCodecParameters& parameters, const Muxer& muxer)
    : incoming_(fittingParameters(parameters)) {
    if (AacTranscoder::isNeededFor(parameters.codec_id)) {
        transcoder_ = std::make_unique<AacTranscoder>(parameters);
        base::logLine("sound is converted: ", codecName(parameters.codec_id), ", ", parameters.sample_rate,
                      " Hz, to ", codecName(AV_CODEC_ID_AAC), ", ", transcoder_->parameters().sample_rate,
                      " Hz");
    } else if (!muxer.holds(parameters.codec_id)) {
        throw std::runtime_error("an MP4 file cannot hold it");
    }
}

Muxer::StreamSource SoundTrack::source(std::int64_t originMs) const {
    const AVCodecParameters& inFile = transcoder_ ? transcoder_->parameters() : *incoming_;
    Muxer::StreamSource source{&inFile, {1, inFile.sample_rate}, kMilliseconds};
    source.stamps = {.keepsPresentation = true, .origin = originMs};
    if (transcoder_) {
        source.inputTimeBase = source.streamTimeBase;
        source.stamps.origin = av_rescale_q(originMs, kMilliseconds, source.inputTimeBase);
    } else if (hasEqualFrames(inFile.codec_id)) {
        source.stamps.samplesPerPacket = inFile.frame_size;
    }
    return source;
}

bool SoundTrack::fits(const AVCodecParameters& parameters) const {
    return isSameSound(*incoming_, parameters);
}

void SoundTrack::take(PacketPtr packet, const Sink& sink) {
    if (bringsNewConfiguration(*packet, *incoming_)) {
        throw std::runtime_error("its configuration has changed");
    }
    if (transcoder_) {
        transcoder_->take(*packet->get(), sink);
    } else {
        makeFit(*packet, incoming_->codec_id);
        sink(std::move(packet));
    }
}

void SoundTrack::finish(const Sink& sink) {
    if (transcoder_) {
        transcoder_->finish(sink);
    }
}

} // namespace ko_player
