#pragma once

#include "records/Options.h"

namespace ko_player {

/// Every decision of a recording that depends on how its stream is read.
struct RecordingRules {
    /// Sound that comes before the file's header is held and written; otherwise it is dropped.
    bool holdsSound;
    /// Pictures before the first key frame are left out: nobody could show them.
    bool beginsWithKeyFrame;
    /// Time counts from the first picture that is written, and the file begins with its first packet;
    /// otherwise both count from 0, wherever the stamps begin.
    bool countsFromFirstPicture;
    /// Packets keep their presentation times, in whole milliseconds; otherwise they have their decode times.
    bool keepsPresentation;
    /// The first picture is decoded for its size and format; otherwise the file says what the metadata said.
    bool looksAtFirstPicture;
    /// Whatever the file cannot hold of the sound costs the sound and never the video: it is converted, or
    /// left out with a line that says so.
    bool makesSoundFit;
    /// A new configuration of the pictures is written among them.
    bool followsConfiguration;
};

[[nodiscard]] constexpr RecordingRules recordingRules(FlvReading reading) {
    return reading == FlvReading::Standard ? RecordingRules{true, true, true, true, true, true, true}
                                           : RecordingRules{false, false, false, false, false, false, false};
}

} // namespace ko_player
