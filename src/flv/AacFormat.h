#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace ko_player {

/// What an MPEG-4 AudioSpecificConfig says of the sound.
struct AacFormat {
    int objectType = 0; ///< audioObjectType of the core, 2 for AAC LC
    int coreRate = 0;   ///< Hz
    int outputRate = 0; ///< Hz, with the extension (SBR) that is told in front of the core
    int channels = 0;   ///< 0 where the frames say it

    friend bool operator==(const AacFormat&, const AacFormat&) = default;
};

/// Nothing for a configuration that is broken, and for rates that are reserved.
[[nodiscard]] std::optional<AacFormat> readAacFormat(std::span<const std::uint8_t> config);

} // namespace ko_player
