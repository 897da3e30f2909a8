#pragma once

#include <chrono>
#include <filesystem>

namespace mediaworker::test {

/// What is said in other words than the shortest.
struct EnhancedOptions {
    bool oldSound = false; ///< AAC in the tags of old, as most programs write it beside new video
    bool oldVideo = false; ///< HEVC in the tags of old, as codec 12
    bool modEx = false;    ///< every tag begins with a nanosecond offset
    bool multitrack =
        false;           ///< second tracks: beside the first in a video tag, in tags of their own for sound
    bool extras = false; ///< colour information before the pictures, and ends of sequence behind
};

/// Writes the first video and audio track of a media file as Enhanced FLV (E-RTMP v2): the tests' own writer,
/// for what not every FFmpeg can write. What the time stamps are later than those of the file: the first is
/// 0. Throws std::runtime_error when the file cannot be read or holds a codec that has no FourCC.
std::chrono::milliseconds writeEnhancedFlv(const std::filesystem::path& from, const std::filesystem::path& to,
                                           const EnhancedOptions& options = {});

} // namespace mediaworker::test
