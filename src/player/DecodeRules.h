#pragma once

#include "records/Options.h"

namespace ko_player {

/// What a pipeline does with time stamps and with its last frames: the part of a reading that lies behind the
/// FLV reader, and that local files have as well.
struct DecodeRules {
    /// Pictures and sound go by their presentation times. Otherwise by their decode times, raised from 0 on
    /// where they do not increase.
    bool presentationTimes = false;
    /// At the end of the input the decoder gives away what it still holds.
    bool drains = false;
    /// The parameters that announce sound are what its frames will be. Otherwise the opened decoder is asked,
    /// which may know less.
    bool exactSoundParameters = false;
};

[[nodiscard]] constexpr DecodeRules decodeRulesOf(FlvReading reading) noexcept {
    const bool isStandard = reading == FlvReading::Standard;
    return {.presentationTimes = isStandard, .drains = isStandard, .exactSoundParameters = isStandard};
}

} // namespace ko_player
