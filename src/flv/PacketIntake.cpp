#include "flv/PacketIntake.h"

#include "base/Log.h"
#include "ffmpeg/Avcodec.h"
#include "ffmpeg/ChannelLayout.h"
#include "ffmpeg/StreamProbe.h"
#include "flv/AacConfig.h"
#include "flv/AacFormat.h"
#include "flv/CodecConfig.h"
#include "flv/CodecMapping.h"
#include "flv/FillPacket.h"
#include "flv/SeiFilter.h"
#include "records/MediaParams.h"

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <new>

namespace ko_player {
namespace {

/// A stream with more kinds of trouble than this needs no further lines.
constexpr std::size_t kMostComplaints = 8;
/// About a second of sound: a configuration that has not come by then is most likely not coming.
constexpr int kPatienceFrames = 50;
/// After so many frames without success the codec is given up until its configuration changes.
constexpr int kMostFailedProbes = 20;

/// What G.711 has where nobody says otherwise. The tag's own rate has no value for it.
constexpr int kTelephoneRate = 8000;

std::span<const std::uint8_t> payloadOf(const flv::Packet& packet) {
    return {packet.data, packet.size};
}

void setExtradata(AVCodecParameters& parameters, std::span<const std::uint8_t> bytes) {
    if (!bytes.empty()) {
        ff_wrap::allocExtradata(parameters, bytes.size());
        std::copy(bytes.begin(), bytes.end(), parameters.extradata);
    }
}

/// How many pictures the decoder has to hold back, where an H.264 stream does not say it: as many as fit
/// between the decode and the presentation time of the first.
int reorderDepth(std::int32_t compositionMs, int frameRate) {
    constexpr int kMostPictures = 4;
    constexpr int kUnknownRate = 2; // what encoders do by default
    constexpr std::int64_t kMsPerSecond = 1000;
    if (compositionMs <= 0) {
        return 0;
    }
    if (frameRate <= 0) {
        return kUnknownRate;
    }
    const std::int64_t pictures = (std::int64_t{compositionMs} * frameRate + kMsPerSecond / 2) / kMsPerSecond;
    return static_cast<int>(std::clamp<std::int64_t>(pictures, 1, kMostPictures));
}

/// Whether pictures in between mean nothing to the decoder, not even for what follows.
bool beginsWithKeyFrame(AVCodecID codec) {
    return codec == AV_CODEC_ID_AV1 || codec == AV_CODEC_ID_VP8 || codec == AV_CODEC_ID_VP9;
}

/// The metadata's, or what is usual: the codec itself says nothing about them.
void describeG711(const flv::AudioPacket& packet, const MetaInfo& metadata, AVCodecParameters& parameters) {
    parameters.sample_rate = isSampleRate(metadata.sampleRate) ? metadata.sampleRate : kTelephoneRate;
    const int channels = metadata.channels == 1 || metadata.channels == 2 ? metadata.channels
                                                                          : static_cast<int>(packet.channels);
    parameters.ch_layout = ff_wrap::layoutFromMask(0, std::max(channels, 1));
}

void followAacConfig(AVCodecParameters& parameters) {
    const auto format =
        readAacFormat({parameters.extradata, static_cast<std::size_t>(parameters.extradata_size)});
    if (format) {
        parameters.sample_rate = format->outputRate;
        parameters.ch_layout = ff_wrap::layoutFromMask(0, std::max(format->channels, 1));
    }
}

} // namespace

void Complaints::say(const std::string& line) {
    if (said_.size() < kMostComplaints && std::find(said_.begin(), said_.end(), line) == said_.end()) {
        said_.push_back(line);
        base::logLine(line);
    }
}

void PacketIntake::complain(const std::string& codecName, const std::string& reason) {
    complaints_.say(complaint_ + codecName + ": " + reason);
}

bool PacketIntake::isPlayable(AVCodecID codec, const std::string& name) {
    if (codec == AV_CODEC_ID_NONE) {
        complain(name, "this codec is not supported");
        return false;
    }
    if (announced_ != AV_CODEC_ID_NONE && codec != announced_) {
        complain(name, "the stream began with another codec");
        return false;
    }
    if (codec != candidate_) {
        candidate_ = codec;
        config_.clear();
    }
    return true;
}

bool PacketIntake::takeConfig(AVCodecID codec, std::span<const std::uint8_t> bytes,
                              std::vector<std::uint8_t>& sideData) {
    auto extradata = extradataOf(codec, bytes);
    if (extradata.empty() || extradata == config_) {
        return false;
    }
    config_ = std::move(extradata);
    undecodable_ = 0;
    if (announced_ != AV_CODEC_ID_NONE) {
        sideData = config_;
    }
    return true;
}

void PacketIntake::countUndecodable(const std::string& name) {
    if (++undecodable_ == kPatienceFrames) {
        complain(name, "no configuration came");
    }
}

void PacketIntake::compare(AVCodecID inMetadata, AVCodecID inPackets) {
    if (inMetadata != AV_CODEC_ID_NONE && inMetadata != inPackets) {
        base::logAt("ko_player::PacketIntake", "codec in metadata: ", codecName(inMetadata),
                    ", in packets, which count: ", codecName(inPackets));
    }
}

void PacketIntake::announce(AVCodecID codec) {
    announced_ = codec;
}

CodecName VideoIntake::codecOf(const flv::VideoPacket& packet) {
    CodecName named = videoCodecNamed(packet.codecId);
    if (packet.isSequenceHeader) {
        const AVCodecID codec = codecOfConfig(named.codec, payloadOf(packet));
        misnumbered_ = codec != named.codec ? packet.codecId : 0;
        misnumberedCodec_ = codec;
    }
    if (misnumbered_ != 0 && packet.codecId == misnumbered_) {
        named = {misnumberedCodec_, codecName(misnumberedCodec_)};
    }
    return named;
}

Verdict VideoIntake::take(const flv::VideoPacket& packet, const MetaInfo& metadata,
                          const ff_wrap::LazyCodecParameters& parameters,
                          std::vector<std::uint8_t>& sideData) {
    const auto [codec, name] = codecOf(packet);
    if (!isPlayable(codec, name)) {
        return Verdict::Drop;
    }
    if (packet.isSequenceHeader) {
        static_cast<void>(takeConfig(codec, payloadOf(packet), sideData));
        return Verdict::Drop;
    }
    if (holdsNoPicture(codec, payloadOf(packet), nalLengthSize(codec, config_))) {
        return Verdict::Drop;
    }
    if (announced() != AV_CODEC_ID_NONE) {
        return Verdict::Pass;
    }
    if (config_.empty() && needsConfig(codec, payloadOf(packet))) {
        countUndecodable(name);
        return Verdict::Drop;
    }
    if (beginsWithKeyFrame(codec) && !packet.isKeyFrame) {
        return Verdict::Drop;
    }
    compare(metadata.videoCodec, codec);
    describe(packet, codec, metadata, *parameters);
    announce(codec);
    base::logAt("ko_player::VideoIntake", "pictures: ", name, ", configuration: ", config_.size(), " bytes");
    return Verdict::AnnounceAndPass;
}

void VideoIntake::describe(const flv::VideoPacket& packet, AVCodecID codec, const MetaInfo& metadata,
                           AVCodecParameters& parameters) const {
    parameters.codec_id = codec;
    parameters.width = metadata.width;
    parameters.height = metadata.height;
    // Other codecs always say it.
    parameters.video_delay =
        codec == AV_CODEC_ID_H264 ? reorderDepth(packet.compositionMs, metadata.frameRate) : 0;
    setExtradata(parameters, config_);
}

Verdict AudioIntake::take(const flv::AudioPacket& packet, const MetaInfo& metadata,
                          const ff_wrap::LazyCodecParameters& parameters,
                          std::vector<std::uint8_t>& sideData) {
    const auto [codec, name] = audioCodecNamed(packet.soundFormat);
    if (!isPlayable(codec, name)) {
        return Verdict::Drop;
    }
    const auto payload = payloadOf(packet);
    if (packet.isSequenceHeader) {
        takeSoundConfig(packet, codec, name, sideData);
        return Verdict::Drop;
    }
    if (announced() != AV_CODEC_ID_NONE) {
        return Verdict::Pass;
    }
    if (failedProbes_ >= kMostFailedProbes) {
        return Verdict::Drop;
    }
    improviseConfig(codec, payload, metadata);
    if (config_.empty() && needsConfig(codec, payload)) {
        countUndecodable(name);
        return Verdict::Drop;
    }
    if (!probe(packet, codec, metadata, *parameters, name)) {
        return Verdict::Drop;
    }
    compare(metadata.audioCodec, codec);
    announce(codec);
    base::logAt("ko_player::AudioIntake", "sound: ", name, ", ", parameters->sample_rate,
                " Hz, channels: ", parameters->ch_layout.nb_channels, ", configuration: ", config_.size(),
                " bytes");
    return Verdict::AnnounceAndPass;
}

void AudioIntake::takeSoundConfig(const flv::AudioPacket& packet, AVCodecID codec, const std::string& name,
                                  std::vector<std::uint8_t>& sideData) {
    const auto payload = payloadOf(packet);
    const auto spelledOut = codec == AV_CODEC_ID_AAC ? spelledOutRate(payload) : std::nullopt;
    if (!spelledOut || !spelledOut->config.empty()) {
        if (takeConfig(codec, spelledOut ? spelledOut->config : payload, sideData)) {
            failedProbes_ = 0;
        }
    } else if (announced() == AV_CODEC_ID_NONE) {
        refuseRate(name, spelledOut->sampleRate);
    }
}

void AudioIntake::refuseRate(const std::string& name, std::int64_t sampleRate) {
    complain(name, "a sample rate of " + std::to_string(sampleRate) + " Hz is refused");
    failedProbes_ = kMostFailedProbes;
}

bool AudioIntake::expect(const MetaInfo& metadata, AVCodecParameters& parameters) const {
    parameters.codec_id = candidate_ != AV_CODEC_ID_NONE ? candidate_ : metadata.audioCodec;
    const bool isG711 =
        parameters.codec_id == AV_CODEC_ID_PCM_ALAW || parameters.codec_id == AV_CODEC_ID_PCM_MULAW;
    parameters.sample_rate =
        isG711 && !isSampleRate(metadata.sampleRate) ? kTelephoneRate : metadata.sampleRate;
    parameters.ch_layout = ff_wrap::layoutFromMask(0, std::clamp(metadata.channels, 1, 2));
    setExtradata(parameters, config_);
    if (config_.empty() && parameters.codec_id == AV_CODEC_ID_AAC) {
        if (const auto aac = makeAacConfig(metadata.sampleRate, metadata.channels)) {
            setExtradata(parameters, aac->config);
        }
    }
    const bool isDescribed =
        parameters.extradata_size > 0 || parameters.codec_id == AV_CODEC_ID_MP3 || isG711;
    if (!isDescribed || !ff_wrap::completeParameters(parameters)) {
        return false;
    }
    if (parameters.codec_id == AV_CODEC_ID_AAC) {
        followAacConfig(parameters); // the decoder does so with the first frame
    }
    return isSampleRate(parameters.sample_rate);
}

void AudioIntake::improviseConfig(AVCodecID codec, std::span<const std::uint8_t> frame,
                                  const MetaInfo& metadata) {
    if (!config_.empty()) {
        return;
    }
    config_ = defaultConfig(codec, frame);
    if (codec == AV_CODEC_ID_AAC && metadata.audioCodec == codec && needsConfig(codec, frame)) {
        if (const auto aac = makeAacConfig(metadata.sampleRate, metadata.channels)) {
            config_.assign(aac->config.begin(), aac->config.end());
        }
    }
}

bool AudioIntake::probe(const flv::AudioPacket& packet, AVCodecID codec, const MetaInfo& metadata,
                        AVCodecParameters& parameters, const std::string& name) {
    if (!ff_wrap::hasDecoder(codec)) {
        complain(name, "no decoder");
        return false;
    }
    // The stream's own stay empty until they are right: nobody is to work with half of them.
    const auto found = ff_wrap::makeCodecParameters();
    found->codec_type = AVMEDIA_TYPE_AUDIO;
    found->codec_id = codec;
    if (codec == AV_CODEC_ID_PCM_ALAW || codec == AV_CODEC_ID_PCM_MULAW) {
        describeG711(packet, metadata, *found);
    }
    setExtradata(*found, config_);
    ff_wrap::Packet frame;
    std::vector<std::uint8_t> noSideData;
    FillPacket(frame, packet.data, packet.size, packet.timestamp, noSideData, 0);
    const ff_wrap::ProbeResult result = ff_wrap::completeParameters(*found, *frame.get());
    if (!result) {
        if (++failedProbes_ == kMostFailedProbes) {
            complain(name, result.failure);
        }
        return false;
    }
    if (!isSampleRate(found->sample_rate)) {
        refuseRate(name, found->sample_rate);
        return false;
    }
    if (ff_wrap::avcodec().avcodec_parameters_copy(&parameters, found.get()) < 0) {
        throw std::bad_alloc();
    }
    return true;
}

} // namespace ko_player
