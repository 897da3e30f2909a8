#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace mediaworker::test {

struct MediaPacket {
    bool isVideo = false;
    bool isKey = false;
    std::int64_t dtsMs = 0;
    std::int64_t ptsMs = 0;
    std::vector<std::uint8_t> bytes;
};

struct MediaTrack {
    std::string codec; ///< FFmpeg's name: "hevc"
    std::vector<std::uint8_t> configuration;
    int widthPx = 0;
    int heightPx = 0;
    int sampleRate = 0;
    int channels = 0;
    int profile = 0;

    [[nodiscard]] bool exists() const { return !codec.empty(); }
};

/// The first video and audio track of a file, as libavformat reads it.
struct MediaFile {
    MediaTrack video;
    MediaTrack audio;
    std::vector<MediaPacket> packets; ///< of both, by decode time
};

/// Throws std::runtime_error when it cannot be read.
[[nodiscard]] MediaFile readMediaFile(const std::filesystem::path& file);

} // namespace mediaworker::test
