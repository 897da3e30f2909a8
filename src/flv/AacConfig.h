#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace ko_player {

/// An MPEG-4 AudioSpecificConfig for AAC LC, and what is written behind its end, into the padding: a sync
/// extension that says "no SBR".
struct AacConfig {
    std::array<std::uint8_t, 2> config;
    std::array<std::uint8_t, 3> behind;
};

/// Nothing for a sample rate that MPEG-4 has no index for.
[[nodiscard]] std::optional<AacConfig> makeAacConfig(int sampleRate, int channels);

} // namespace ko_player
