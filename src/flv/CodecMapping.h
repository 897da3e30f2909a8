#pragma once

#include <cstdint>
#include <string>

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace ko_player {

/// The codec of the metadata's "videocodecid", AV_CODEC_ID_NONE for an unknown one.
[[nodiscard]] AVCodecID videoCodecOf(std::int64_t flvCodecId);

/// The codec of an FLV SoundFormat, AV_CODEC_ID_NONE for an unknown one.
[[nodiscard]] AVCodecID audioCodecOf(std::int64_t soundFormat);

/// As log lines name a codec; by number where it has no name here.
[[nodiscard]] std::string codecLogName(AVCodecID codec);

} // namespace ko_player
