#pragma once

#include "flv/Medium.h"

#include <array>
#include <cstdint>
#include <optional>

namespace ko_player::flv {

/// Lets time go on where the clock of a stream starts anew (a server or a camera restarted): what comes after
/// follows what came before, in step over both kinds of packets. A gap in the stamps stays one, up to a day:
/// an archive may have hours without a recording, but days are another clock's.
class ContinuousTime {
public:
    /// Stamps that go back by less are those of a stream that orders its packets badly.
    static constexpr std::int64_t kSmallestJumpMs = 1000;
    static constexpr std::int64_t kLargestGapMs = 86'400'000;
    /// How far apart sound and pictures may be in a stream.
    static constexpr std::int64_t kLargestDistanceMs = 10'000;

    /// What has to be added to the stamps of this packet; `dtsMs` is its decode time stamp.
    [[nodiscard]] std::int64_t shiftOf(Medium medium, std::int64_t dtsMs);

private:
    struct Track {
        std::optional<std::int64_t> last; ///< as it came
        std::int64_t step = 1;            ///< between the last two
        std::int64_t shift = 0;
        std::int64_t reached = 0; ///< the last, shifted
    };

    [[nodiscard]] static bool isJump(const Track& track, std::int64_t dtsMs);
    [[nodiscard]] std::int64_t shiftAfterJump(const Track& track, const Track& other,
                                              std::int64_t dtsMs) const;

    std::array<Track, 2> tracks_; ///< by Medium
};

} // namespace ko_player::flv
