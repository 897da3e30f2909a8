#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

/// What codecs need before their first frame, in the standard reading.
namespace ko_player {

/// The configuration of a sequence header in the form that FFmpeg takes as extradata. Empty where the codec
/// needs none, or where it is broken.
[[nodiscard]] std::vector<std::uint8_t> extradataOf(AVCodecID codec, std::span<const std::uint8_t> config);

/// The codec of a configuration of H.264 or H.265. There are servers that number all their tags alike: a
/// record that has the other codec's form, and not that of `codec`, decides.
[[nodiscard]] AVCodecID codecOfConfig(AVCodecID codec, std::span<const std::uint8_t> config);

/// Whether the frame means nothing without a configuration.
[[nodiscard]] bool needsConfig(AVCodecID codec, std::span<const std::uint8_t> frame);

/// A configuration for frames that come without one, from the frame itself. Empty where there is none.
[[nodiscard]] std::vector<std::uint8_t> defaultConfig(AVCodecID codec, std::span<const std::uint8_t> frame);

/// How many bytes the length before each NAL unit has. 0 for codecs without, and without a configuration.
[[nodiscard]] std::size_t nalLengthSize(AVCodecID codec, std::span<const std::uint8_t> extradata);

} // namespace ko_player
