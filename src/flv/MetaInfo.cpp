#include "flv/MetaInfo.h"

#include "base/Log.h"
#include "base/Saturating.h"
#include "flv/CodecMapping.h"

#include <string_view>

namespace ko_player {
namespace {

/// Sizes from this on are no sizes of pictures but garbage.
constexpr std::int64_t kFrameSizeEnd = 8000;
constexpr std::int64_t kFrameRateEnd = 1000;

AVCodecID vcodecFromMeta(std::int64_t value) {
    const AVCodecID codec = videoCodecOf(value);
    if (codec == AV_CODEC_ID_NONE) {
        base::logAt("ko_player::FlvHandler::vcodecFromMeta", "unknown vcodec: ", value);
    }
    return codec;
}

int videoFrameSize(std::int64_t value) {
    if (value < 1 || value >= kFrameSizeEnd) {
        base::logAt("ko_player::FlvHandler::videoFrameSize", "bad size: ", value);
        return 0;
    }
    return static_cast<int>(value);
}

// The codec of a tag decides; what the metadata say is only compared with it. So nothing is said here.
AVCodecID videoCodec(std::int64_t value, flv::Announcement announcement) {
    return announcement == flv::Announcement::ByMetadata ? vcodecFromMeta(value)
                                                         : videoCodecNamed(codecIdOfMetadata(value)).codec;
}

AVCodecID audioCodec(std::int64_t value, flv::Announcement announcement) {
    // By metadata: a whole FLV audio header byte, with the SoundFormat in its upper half.
    return announcement == flv::Announcement::ByMetadata ? acodecFromMeta(value >> 4)
                                                         : audioCodecNamed(codecIdOfMetadata(value)).codec;
}

void interpret(MetaInfo& info, std::string_view key, std::int64_t value, flv::Announcement announcement) {
    if (key == "absolute_time") {
        info.position.absoluteTime = value;
    } else if (key == "fragmentPosition") {
        info.position.fragmentPosition = value;
    } else if (key == "fragmentDuration") {
        info.position.fragmentDuration = value;
    } else if (key == "videocodecid") {
        info.videoCodec = videoCodec(value, announcement);
    } else if (key == "width") {
        info.width = videoFrameSize(value);
    } else if (key == "height") {
        info.height = videoFrameSize(value);
    } else if (key == "framerate") {
        info.frameRate = value > 0 && value < kFrameRateEnd ? static_cast<int>(value) : 0;
    } else if (key == "audiocodecid") {
        info.audioCodec = audioCodec(value, announcement);
    } else if (key == "audiosamplerate") {
        info.sampleRate = static_cast<int>(value);
    } else if (key == "audiosamplesize") {
        info.sampleSize = value;
    } else if (key == "audiochannels") {
        info.channels = static_cast<int>(value);
    } else if (key == "stereo" && announcement == flv::Announcement::ByPackets && info.channels == 0) {
        info.channels = value != 0 ? 2 : 1;
    }
}

} // namespace

AVCodecID acodecFromMeta(std::int64_t soundFormat) {
    const AVCodecID codec = audioCodecOf(soundFormat);
    if (codec == AV_CODEC_ID_NONE) {
        base::logAt("ko_player::FlvHandler::acodecFromMeta", "unknown acodec: ", soundFormat);
    }
    return codec;
}

void MetaInfo::update(const MetaInfo& later) {
    const auto take = [](auto& known, const auto& said) { known = said != 0 ? said : known; };
    take(videoCodec, later.videoCodec);
    take(width, later.width);
    take(height, later.height);
    take(frameRate, later.frameRate);
    take(audioCodec, later.audioCodec);
    take(sampleRate, later.sampleRate);
    take(sampleSize, later.sampleSize);
    take(channels, later.channels);
}

MetaInfo interpretMetadata(const flv::NumberProperties& properties, const flv::Dialect& dialect) {
    MetaInfo info;
    for (const auto& [key, value] : properties) {
        interpret(info, key, base::toInt64Saturated(value), dialect.announcement);
    }
    return info;
}

} // namespace ko_player
