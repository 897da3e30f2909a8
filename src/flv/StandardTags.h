#pragma once

#include "flv/FlvPackets.h"

#include <cstdint>
#include <span>

namespace ko_player::flv {

/// A FourCC as enhanced tags carry it, first character in the highest byte.
[[nodiscard]] constexpr std::uint32_t fourCc(const char (&text)[5]) noexcept {
    const auto byte = [&text](int i) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(text[i]));
    };
    return byte(0) << 24U | byte(1) << 16U | byte(2) << 8U | byte(3);
}

/// Reads the body of an audio tag as common programs write it, plain or enhanced. A codec that nobody can
/// decode is not an error here. Only the chosen track is read; the first one is chosen.
[[nodiscard]] ParsedTag<AudioPacket>
parseStandardAudioTag(std::uint32_t timestampMs, std::span<const std::uint8_t> body, TrackChoice& track);

/// The same for a video tag.
[[nodiscard]] ParsedTag<VideoPacket>
parseStandardVideoTag(std::uint32_t timestampMs, std::span<const std::uint8_t> body, TrackChoice& track);

} // namespace ko_player::flv
