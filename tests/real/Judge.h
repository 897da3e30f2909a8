#pragma once

#include "Ffprobe.h"
#include "Source.h"
#include "Spectator.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace mediaworker::test {

/// What a stream holds, by ffprobe: the pictures from the first key frame on, since nobody can show the
/// others.
struct Contents {
    std::vector<ProbedTrack> tracks;
    std::vector<std::int64_t> picturesMs; ///< presentation times, in the order shown
};

[[nodiscard]] Contents contentsOf(const Made& made);

/// A worker that has shown a stream.
struct Playing {
    std::optional<int> exitCode; ///< none: it was still running long after the stream's end
    std::size_t sent = 0;
    std::size_t shown = 0;
    bool hasPresentationTimes = false;      ///< the pictures that were shown came with theirs
    std::vector<std::string> wrongPictures; ///< torn, or in the wrong order
    std::chrono::milliseconds heard{0};
    std::string log;
};

/// Shows a stream with both readings at the same time, with sound into devices of their own.
///
/// The server sends as fast as it is read. For the standard reading it ends its response at once then; for
/// the strict one, which stops there, when everything has been shown.
struct PlayedBoth {
    Playing strict;
    Playing standard;
};
/// Whether the strict one has a sound device.
enum class StrictSound { Off, On };
[[nodiscard]] PlayedBoth play(const Source& source, const Made& made,
                              StrictSound strictSound = StrictSound::Off);

struct WrittenTrack {
    std::string codec;
    std::string tag; ///< what MP4 calls it
    bool isVideo = false;
    std::size_t sent = 0;
    std::size_t written = 0;
    bool isSameCodec = false;
    bool isInStep = false; ///< packets and times are the stream's, up to what all tracks differ by
};

/// A worker that has exported a stream.
struct Exporting {
    std::optional<int> exitCode;
    std::vector<WrittenTrack> tracks;
    /// How much later than in the stream the tone begins after the first picture, where sound was coded anew.
    std::optional<std::chrono::microseconds> soundIsLate;
    std::string complaints; ///< ffmpeg's about the file when it decodes it
    std::string log;

    [[nodiscard]] const WrittenTrack* track(bool isVideo) const;
};

[[nodiscard]] Exporting exportStream(const Source& source, const Made& made, Reading reading,
                                     const std::filesystem::path& output);

/// Compares a file with the stream that it was made of.
[[nodiscard]] std::vector<WrittenTrack> compare(const Contents& sent,
                                                const std::vector<ProbedTrack>& written);

/// Whether a tone was heard for as long as a device that starts late lets one expect.
[[nodiscard]] bool isHeard(const Playing& playing);
/// Seen, heard and exported as the source's row says; what is not, in words. Empty: all is well.
[[nodiscard]] std::string seenComplaint(const Playing& playing);
[[nodiscard]] std::string heardComplaint(const Source& source, const Playing& playing);
[[nodiscard]] std::string trackComplaint(const Source& source, const WrittenTrack& track);
[[nodiscard]] std::string exportComplaint(const Source& source, const Exporting& exporting);

} // namespace mediaworker::test
