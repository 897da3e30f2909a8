#pragma once

#include "support/FlvWriter.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace mediaworker::test {

enum class AudioCodec { None, Aac, Mp3, ALaw, MuLaw, Opus, Flac, Ac3, Eac3 };

/// What to encode: numbered test pictures and, if asked for, a steady tone of the same length.
struct ClipSpec {
    VideoCodec codec = VideoCodec::Avc;
    int widthPx = 320;
    int heightPx = 180;
    int fps = 25;
    int frames = 50;
    int firstFrameNumber = 0;
    int gop = 25;
    int bFrames = 0;
    int bitrateKbps = 0; ///< 0: constant quality `crf`
    int crf = 23;
    std::string preset = "ultrafast";
    bool zeroLatency = false;
    bool tenBit = false;
    int sarNumerator = 0; ///< 0: no aspect ratio is written
    int sarDenominator = 1;
    int noise = 0; ///< grain over the picture, 0 to 64
    std::vector<std::string> extraVideoArguments;

    AudioCodec audio = AudioCodec::None;
    int sampleRate = 44100;
    int channels = 2;
    double toneHz = 1000;
    double toneLevel = 0.5; ///< amplitude, 1 is full scale
    std::string wave = {};  ///< instead of the tone: of the time t in seconds, as FFmpeg's aevalsrc takes it
};

struct ClipPacket {
    std::vector<std::uint8_t> bytes; ///< video: NAL units with 4-byte lengths, or one frame; audio: one frame
    std::int64_t dtsMs = 0;
    std::int64_t ptsMs = 0;
    bool isKey = false;
};

/// An encoded clip, in memory. The first decode time stamp is 0.
struct Clip {
    ClipSpec spec;
    std::vector<std::uint8_t> videoConfig; ///< avcC, hvcC or av1C; empty for VP8 and VP9
    std::vector<std::uint8_t> audioConfig; ///< AudioSpecificConfig, OpusHead or STREAMINFO; empty for others
    std::vector<ClipPacket> video;         ///< in decode order
    std::vector<ClipPacket> audio;

    [[nodiscard]] std::int64_t durationMs() const noexcept {
        return std::int64_t{1000} * spec.frames / spec.fps;
    }
};

/// Encodes the clip with the ffmpeg program, or takes it from the cache: the folder named by the environment
/// variable MEDIAWORKER_TEST_CACHE, else one in the build folder. Several processes may ask for the same clip
/// at once; one encodes, the others wait. Throws std::runtime_error when ffmpeg fails.
[[nodiscard]] Clip encode(const ClipSpec& spec);

/// The file behind `encode`, for players that want a file: a QuickTime container or one
/// that takes the codecs.
[[nodiscard]] std::filesystem::path encodedFile(const ClipSpec& spec);

/// Reads a file of ours through libavformat. Throws std::runtime_error when it is not as `spec` says.
[[nodiscard]] Clip readClip(const std::filesystem::path& file, const ClipSpec& spec);

/// A picture that a decoder which gets only decode time stamps shows, and the time stamp it carries then:
/// that of the packet which pushed it out of the decoder. Without B-frames that is its own.
struct ShownPicture {
    int frameNumber = 0;
    std::int64_t stampMs = 0;
};

/// All pictures of the clip, in the order shown. With B-frames the last ones are missing: without a flush no
/// packet pushes them out.
[[nodiscard]] std::vector<ShownPicture> shownPictures(const Clip& clip);

} // namespace mediaworker::test
