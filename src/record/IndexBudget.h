#pragma once

#include "base/Saturating.h"

#include <algorithm>
#include <cstdint>

namespace ko_player {

/// Decides whether a recording may have a further packet. The index of an MP4 file is kept in memory until
/// the end, 65 bytes for each packet: so there may be a million of them (65 MB), and beyond that as many as
/// a stream has that somebody looks at.
class IndexBudget {
public:
    static constexpr std::int64_t kFreePackets = 1'000'000; ///< four hours of a camera with sound
    /// Of the recording, by its time stamps. 120 pictures and 100 packets of sound are the most that cameras
    /// send.
    static constexpr std::int64_t kPacketsPerSecond = 500;

    /// Counts a packet with that time stamp, milliseconds. False where it is one too many.
    [[nodiscard]] bool add(std::int64_t dtsMs) {
        if (packets_++ == 0) {
            firstMs_ = dtsMs;
            newestMs_ = dtsMs;
        }
        newestMs_ = std::max(newestMs_, dtsMs);
        const std::int64_t seconds = base::subtractSaturated(newestMs_, firstMs_) / 1000;
        return packets_ <= kFreePackets || packets_ / kPacketsPerSecond <= seconds;
    }

private:
    std::int64_t packets_ = 0;
    std::int64_t firstMs_ = 0;
    std::int64_t newestMs_ = 0;
};

} // namespace ko_player
