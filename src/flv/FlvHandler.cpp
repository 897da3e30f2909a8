#include "flv/FlvHandler.h"

#include "base/Log.h"
#include "base/Saturating.h"
#include "ffmpeg/ChannelLayout.h"
#include "flv/AacConfig.h"
#include "flv/CodecMapping.h"
#include "flv/FillPacket.h"
#include "flv/SeiFilter.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

namespace ko_player {
namespace {

std::span<const std::uint8_t> payloadOf(const flv::Packet& packet) {
    return {packet.data, packet.size};
}

void setExtradata(AVCodecParameters& params, std::span<const std::uint8_t> bytes) {
    ff_wrap::allocExtradata(params, bytes.size());
    std::copy(bytes.begin(), bytes.end(), params.extradata);
}

bool hasExtradata(const AVCodecParameters& params) {
    return params.extradata != nullptr && params.extradata_size > 0;
}

} // namespace

void FlvHandler::onHeader(bool audio, bool video) {
    base::logAt("ko_player::FlvHandler::onHeader", "audio: ", audio, ", video: ", video);
}

void FlvHandler::onError(const std::string& message) {
    base::logAt("ko_player::FlvHandler::onError", "flv parser error: ", message);
}

void FlvHandler::onScriptData(const flv::NumberProperties& properties) {
    const MetaInfo info = interpretMetadata(properties, dialect_);
    if (dialect_.announcement == flv::Announcement::ByMetadata) {
        configureFrom(info);
    } else {
        remember(info);
    }
    if (info.position.hasPosition() && onMetadata) {
        onMetadata(info.position);
    }
}

void FlvHandler::configureFrom(const MetaInfo& info) {
    if (info.videoCodec != AV_CODEC_ID_NONE) {
        handleVideoMetaInfo(info.videoCodec, info.width, info.height);
    }
    if (info.audioCodec != AV_CODEC_ID_NONE) {
        handleAudioMetaInfo(info.audioCodec, info.sampleRate, info.sampleSize, info.channels);
    }
}

void FlvHandler::remember(const MetaInfo& info) {
    if (info.width > 0 && info.height > 0 && expectPicture) {
        expectPicture(info.width, info.height);
    }
    metaInfo_.update(info);
}

void FlvHandler::handleVideoMetaInfo(AVCodecID codec, int width, int height) {
    base::logAt("ko_player::FlvHandler::handleVideoMetaInfo", "vcodec: ", codecLogName(codec), ", w: ", width,
                ", h: ", height);
    // First: the parameters below wait for the codec library, and this time can be used.
    if (width > 0 && height > 0 && expectPicture) {
        expectPicture(width, height);
    }
    videoParams_->codec_id = codec;
    videoParams_->format = AV_PIX_FMT_YUV420P;
    videoParams_->width = width;
    videoParams_->height = height;
}

void FlvHandler::handleAudioMetaInfo(AVCodecID codec, int sampleRate, std::int64_t sampleSize, int channels) {
    constexpr std::string_view kFunction = "ko_player::FlvHandler::handleAudioMetaInfo";
    base::logAt(kFunction, "acodec: ", codecLogName(codec), ", samplerate: ", sampleRate, ", ch: ", channels,
                ", samplesize: ", sampleSize);
    audioParams_->codec_id = codec;
    if ((channels != 1 && channels != 2) || sampleRate < 1) {
        base::logAt(kFunction, "ivalid channels or rate");
        return;
    }
    av_channel_layout_uninit(&audioParams_->ch_layout);
    audioParams_->ch_layout = ff_wrap::layoutFromMask(ff_wrap::defaultLayoutMask(channels), channels);
    audioParams_->sample_rate = sampleRate;
    audioParams_->bits_per_coded_sample = static_cast<int>(sampleSize);
    if (codec == AV_CODEC_ID_AAC && !hasExtradata(*audioParams_)) {
        generateAacExtraData(sampleRate, channels);
    }
}

void FlvHandler::generateAacExtraData(int sampleRate, int channels) {
    const auto aac = makeAacConfig(sampleRate, channels);
    if (!aac) {
        base::logAt("ko_player::FlvHandler::generateAacExtraData", "ivalid aac sample_rate: ", sampleRate);
        return;
    }
    setExtradata(*audioParams_, aac->config);
    std::copy(aac->behind.begin(), aac->behind.end(), audioParams_->extradata + aac->config.size());
}

bool FlvHandler::isAbsurd(const flv::Packet& packet, bool isSequenceHeader) {
    if (!isSequenceHeader || packet.size <= kMaxConfigurationBytes) {
        return false;
    }
    if (!std::exchange(saidAbsurd_, true)) {
        base::logAt("ko_player::FlvHandler", "a codec configuration of ", packet.size, " bytes is ignored");
    }
    return true;
}

void FlvHandler::onVideoTag(const flv::VideoPacket& packet) {
    if (isAbsurd(packet, packet.isSequenceHeader)) {
        return;
    }
    const Verdict verdict = dialect_.announcement == flv::Announcement::ByMetadata
                                ? takeByMetadata(packet)
                                : videoIntake_.take(packet, metaInfo_, videoParams_, pendingVideoSideData_);
    if (verdict == Verdict::Drop) {
        return;
    }
    if (verdict == Verdict::AnnounceAndPass && onVideoParams) {
        onVideoParams(videoParams_.get());
    }
    auto filled = fill(Medium::Video, packet, packet.compositionMs, pendingVideoSideData_,
                       packet.isKeyFrame ? AV_PKT_FLAG_KEY : 0);
    if (onVideoPacket) {
        onVideoPacket(std::move(filled));
    }
}

std::shared_ptr<ff_wrap::Packet> FlvHandler::fill(Medium medium, const flv::Packet& packet,
                                                  std::int32_t compositionMs,
                                                  std::vector<std::uint8_t>& sideData, int keyFlag) {
    auto filled = std::make_shared<ff_wrap::Packet>();
    const std::int64_t dtsMs = decodeTime(medium, packet.timestamp);
    FillPacket(*filled, packet.data, packet.size, dtsMs, sideData, keyFlag);
    if (dialect_.hasPresentationTimes) {
        (*filled)->pts = base::addSaturated(dtsMs, compositionMs);
    }
    return filled;
}

std::int64_t FlvHandler::decodeTime(Medium medium, std::uint32_t timestampMs) {
    if (!dialect_.continuesTime) {
        return timestampMs;
    }
    const std::int64_t dtsMs = wrappingTime_.next(timestampMs);
    return base::addSaturated(dtsMs, continuousTime_.shiftOf(medium, dtsMs));
}

Verdict FlvHandler::takeByMetadata(const flv::VideoPacket& packet) {
    const auto payload = payloadOf(packet);
    if (std::exchange(firstVideoPending_, false)) {
        onFirstVideoData(packet);
        if (packet.isSequenceHeader) {
            return Verdict::Drop;
        }
    } else if (packet.isSequenceHeader) {
        pendingVideoSideData_.assign(payload.begin(), payload.end());
        return Verdict::Drop;
    }
    return isSupplementalOnly(videoParams_->codec_id, payload) ? Verdict::Drop : Verdict::Pass;
}

void FlvHandler::onFirstVideoData(const flv::VideoPacket& packet) {
    constexpr std::string_view kFunction = "ko_player::FlvHandler::onFirstVideoData";
    base::logAt(kFunction, "first video frame with sps-value: ", packet.isSequenceHeader,
                ", size: ", packet.size);
    if (packet.isSequenceHeader) {
        setExtradata(*videoParams_, payloadOf(packet));
    } else {
        base::logAt(kFunction, "first video frame is not AVC");
    }
    if (videoParams_->codec_id == AV_CODEC_ID_NONE) {
        base::logAt(kFunction, "no video meta info, use default");
        handleVideoMetaInfo(AV_CODEC_ID_H264, 0, 0);
    }
    if (onVideoParams) {
        onVideoParams(videoParams_.get());
    }
}

void FlvHandler::onAudioTag(const flv::AudioPacket& packet) {
    if (isAbsurd(packet, packet.isSequenceHeader)) {
        return;
    }
    const Verdict verdict = dialect_.announcement == flv::Announcement::ByMetadata
                                ? takeByMetadata(packet)
                                : audioIntake_.take(packet, metaInfo_, audioParams_, pendingAudioSideData_);
    if (verdict == Verdict::Drop) {
        return;
    }
    if (verdict == Verdict::AnnounceAndPass && onAudioParams) {
        onAudioParams(audioParams_.get());
    }
    auto filled = fill(Medium::Audio, packet, 0, pendingAudioSideData_, 0);
    if (onAudioPacket) {
        onAudioPacket(std::move(filled));
    }
}

ff_wrap::CodecParametersPtr FlvHandler::expectedAudio() const {
    auto parameters = ff_wrap::makeCodecParameters();
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    if (!audioIntake_.expect(metaInfo_, *parameters)) {
        parameters.reset();
    }
    return parameters;
}

Verdict FlvHandler::takeByMetadata(const flv::AudioPacket& packet) {
    if (std::exchange(firstAudioPending_, false)) {
        return onFirstAudioData(packet) && !packet.isSequenceHeader ? Verdict::Pass : Verdict::Drop;
    }
    if (packet.isSequenceHeader) {
        const auto payload = payloadOf(packet);
        pendingAudioSideData_.assign(payload.begin(), payload.end());
        return Verdict::Drop;
    }
    return Verdict::Pass;
}

bool FlvHandler::onFirstAudioData(const flv::AudioPacket& packet) {
    constexpr std::string_view kFunction = "ko_player::FlvHandler::onFirstAudioData";
    base::logAt(kFunction, "first audio frame: fmt: ", packet.soundFormat, ", rate: ", packet.sampleRate,
                ", ch: ", packet.channels, ", s16: ", packet.is16Bit);
    const AVCodecID codec = acodecFromMeta(packet.soundFormat);
    if (codec == AV_CODEC_ID_NONE) {
        base::logAt(kFunction, "codec of packet is unsupported");
        return false;
    }
    if (codec != audioParams_->codec_id) {
        base::logAt(kFunction, "codec in metadata is not equal to codec of packet: must: ",
                    static_cast<int>(audioParams_->codec_id), ", received: ", static_cast<int>(codec));
        return false;
    }
    if (codec == AV_CODEC_ID_AAC) {
        initAacExtradataFromPacket(packet);
    }
    if (onAudioParams) {
        onAudioParams(audioParams_.get());
    }
    return true;
}

void FlvHandler::initAacExtradataFromPacket(const flv::AudioPacket& packet) {
    constexpr std::string_view kFunction = "ko_player::FlvHandler::initAacExtradataFromPacket";
    if (packet.isSequenceHeader && packet.size > 0) {
        setExtradata(*audioParams_, payloadOf(packet));
        base::logAt(kFunction, "copy from pack: ", packet.size, " bytes");
    } else if (hasExtradata(*audioParams_)) {
        base::logAt(kFunction, "using defaults from metadata: ", audioParams_->extradata_size, " bytes");
    } else {
        base::logAt(kFunction, "ERROR: no aac config in packet or in metadata");
    }
}

} // namespace ko_player
