#pragma once

#include <cstdint>

namespace ko_player {

/// Where in a recording the stream stands, as the server's script data tells it. Units are the server's.
struct Metadata {
    std::int64_t fragmentPosition = 0;
    std::int64_t fragmentDuration = 0;
    std::int64_t absoluteTime = 0;
    std::int64_t timestampMs = 0; ///< of the video packet that followed; filled by the video pipeline

    /// Whether any of the server's three values says something.
    [[nodiscard]] bool hasPosition() const {
        return fragmentPosition > 0 || fragmentDuration > 0 || absoluteTime > 0;
    }

    friend bool operator==(const Metadata&, const Metadata&) = default;
};

} // namespace ko_player
