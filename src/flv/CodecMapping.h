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

/// A codec as common programs number it: by FLV's own numbers or by FourCC.
struct CodecName {
    AVCodecID codec = AV_CODEC_ID_NONE; ///< none where nothing here can play it
    std::string name;                   ///< for people
};

/// The codec of a tag by its CodecID, or FourCC.
[[nodiscard]] CodecName videoCodecNamed(std::uint32_t codecId);

/// The codec of a tag by its SoundFormat, or FourCC.
[[nodiscard]] CodecName audioCodecNamed(std::uint32_t soundFormat);

/// The name for people; by number where it has none here.
[[nodiscard]] std::string codecName(AVCodecID codec);

/// What "videocodecid" or "audiocodecid" stand for: a tag's number, a FourCC, or the whole header byte of a
/// tag, with the number of the sound's codec in its upper half. Nothing that makes sense gives 0.
[[nodiscard]] std::uint32_t codecIdOfMetadata(std::int64_t value);

} // namespace ko_player
