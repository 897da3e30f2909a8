#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace ko_player {

/// Whether a video payload (NAL units behind 4-byte lengths) has nothing for a decoder: it is too short to
/// hold a NAL unit, or holds only supplemental information. For HEVC the first NAL unit decides alone.
[[nodiscard]] bool isSupplementalOnly(AVCodecID codec, std::span<const std::uint8_t> payload);

/// The same for the standard reading: whether all of the NAL units are supplemental information or mark the
/// begin of a picture. `lengthSize` is that of the length before each, 1 to 4 bytes; other codecs have 0.
[[nodiscard]] bool holdsNoPicture(AVCodecID codec, std::span<const std::uint8_t> payload,
                                  std::size_t lengthSize);

} // namespace ko_player
