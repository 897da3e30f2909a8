#pragma once

#include <cstdint>
#include <span>

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace ko_player {

/// Whether a video payload (NAL units behind 4-byte lengths) has nothing for a decoder: it is too short to
/// hold a NAL unit, or holds only supplemental information. For HEVC the first NAL unit decides alone.
[[nodiscard]] bool isSupplementalOnly(AVCodecID codec, std::span<const std::uint8_t> payload);

} // namespace ko_player
