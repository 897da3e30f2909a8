#include "flv/CodecMapping.h"

namespace ko_player {

AVCodecID videoCodecOf(std::int64_t flvCodecId) {
    switch (flvCodecId) {
    case 7:
        return AV_CODEC_ID_H264;
    case 12:
        return AV_CODEC_ID_HEVC;
    default:
        return AV_CODEC_ID_NONE;
    }
}

AVCodecID audioCodecOf(std::int64_t soundFormat) {
    switch (soundFormat) {
    case 2:
        return AV_CODEC_ID_MP3;
    case 7:
        return AV_CODEC_ID_PCM_ALAW;
    case 8:
        return AV_CODEC_ID_PCM_MULAW;
    case 10:
        return AV_CODEC_ID_AAC;
    default:
        return AV_CODEC_ID_NONE;
    }
}

std::string codecLogName(AVCodecID codec) {
    switch (codec) {
    case AV_CODEC_ID_H264:
        return "h264";
    case AV_CODEC_ID_HEVC:
        return "h265";
    case AV_CODEC_ID_MP3:
        return "mp3";
    case AV_CODEC_ID_PCM_ALAW:
        return "pcma";
    case AV_CODEC_ID_PCM_MULAW:
        return "pcmu";
    case AV_CODEC_ID_AAC:
        return "aac";
    default:
        return std::to_string(static_cast<int>(codec));
    }
}

} // namespace ko_player
