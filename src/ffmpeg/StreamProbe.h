#pragma once

#include <string>

struct AVCodecParameters;
struct AVPacket;

namespace ko_player::ff_wrap {

/// True where the parameters were completed.
struct ProbeResult {
    std::string failure; ///< why not, for people; empty otherwise

    explicit operator bool() const noexcept { return failure.empty(); }
};

/// Decodes the first packet of a stream (time base 1/1000; of pictures, a key frame) and writes what that
/// shows into the parameters: size, pixel format, profile; or sample rate, channels, sample format, frame
/// size. They need a codec and, where the codec has one, its configuration. Unchanged where nothing can be
/// decoded.
[[nodiscard]] ProbeResult completeParameters(AVCodecParameters& parameters, const AVPacket& firstPacket);

/// The same without a packet, from the codec's configuration alone: as much as the decoder knows before its
/// first frame.
[[nodiscard]] ProbeResult completeParameters(AVCodecParameters& parameters);

/// Whether the FFmpeg at hand has a decoder; `codecId` is an AVCodecID.
[[nodiscard]] bool hasDecoder(int codecId);

} // namespace ko_player::ff_wrap
