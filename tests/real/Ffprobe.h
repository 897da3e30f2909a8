#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace mediaworker::test {

/// A packet as the ffprobe program shows it.
struct ProbedPacket {
    std::chrono::microseconds pts{0};
    std::chrono::microseconds dts{0};
    std::size_t bytes = 0;
    bool isKey = false;
};

struct ProbedTrack {
    bool isVideo = false;
    std::string codec; ///< "h264"
    std::string tag;   ///< "avc1", where the format has one
    int widthPx = 0;
    int heightPx = 0;
    int sampleRate = 0;
    int channels = 0;
    std::vector<ProbedPacket> packets; ///< in the file's order
};

/// The video and audio tracks of a file with their packets. Throws std::runtime_error when ffprobe cannot
/// read it.
[[nodiscard]] std::vector<ProbedTrack> ffprobe(const std::filesystem::path& file);

/// The first video or audio track; null when there is none.
[[nodiscard]] const ProbedTrack* trackOf(const std::vector<ProbedTrack>& tracks, bool isVideo);

} // namespace mediaworker::test
