#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace ko_player {

/// An MPEG-4 AudioSpecificConfig for AAC LC, and what is written behind its end, into the padding: a sync
/// extension that says "no SBR".
struct AacConfig {
    std::array<std::uint8_t, 2> config;
    std::array<std::uint8_t, 3> behind;
};

/// Nothing for a sample rate that MPEG-4 has no index for.
[[nodiscard]] std::optional<AacConfig> makeAacConfig(int sampleRate, int channels);

/// An AudioSpecificConfig that spelled its sample rate out.
struct SpelledOutRate {
    std::uint32_t sampleRate = 0; ///< Hz, as it was spelled out
    std::vector<std::uint8_t>
        config; ///< the same with the index of that rate; empty where there is none near
};

/// FFmpeg's decoder refuses a rate that is spelled out. Nothing for a configuration with an index.
[[nodiscard]] std::optional<SpelledOutRate> spelledOutRate(std::span<const std::uint8_t> config);

} // namespace ko_player
