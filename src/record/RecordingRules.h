#pragma once

#include "record/ExportProgress.h"
#include "record/Muxer.h"
#include "records/Options.h"

namespace ko_player {

/// Every decision of a recording that depends on how its stream is read.
struct RecordingRules {
    /// Sound that comes before the file's header is held and written; otherwise it is dropped.
    bool holdsSound = false;
    /// Pictures before the first key frame are left out: nobody could show them.
    bool beginsWithKeyFrame = false;
    /// Time counts from the first picture that is written, and the file begins with its first packet;
    /// otherwise both count from 0, wherever the stamps begin.
    bool countsFromFirstPicture = false;
    /// Packets keep their presentation times, in whole milliseconds; otherwise they have their decode times.
    bool keepsPresentation = false;
    /// The first picture is decoded for its size and format; otherwise the file says what the metadata said.
    bool looksAtFirstPicture = false;
    /// Whatever the file cannot hold of the sound costs the sound and never the video: it is converted, or
    /// left out with a line that says so.
    bool makesSoundFit = false;
    /// A new configuration of the pictures is written among them.
    bool followsConfiguration = false;
    /// Of an export without an end in its time stamps.
    Standstill standstill = Standstill::Endured;
    Muxer::Form form = Muxer::Form::Plain;
};

[[nodiscard]] constexpr RecordingRules recordingRules(FlvReading reading) {
    if (reading == FlvReading::Strict) {
        return {};
    }
    return {.holdsSound = true,
            .beginsWithKeyFrame = true,
            .countsFromFirstPicture = true,
            .keepsPresentation = true,
            .looksAtFirstPicture = true,
            .makesSoundFit = true,
            .followsConfiguration = true,
            .standstill = Standstill::EndsIt,
            .form = Muxer::Form::Faithful};
}

} // namespace ko_player
