#pragma once

extern "C" {
#include <libavutil/rational.h>
}

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace ko_player {

/// Geometry and pixel format of a picture.
struct VideoParams {
    int format = -1; ///< an AVPixelFormat, -1 for none
    int width = 0;   ///< pixels
    int height = 0;  ///< pixels
    AVRational sampleAspectRatio{0, 1};

    friend bool operator==(const VideoParams& a, const VideoParams& b) {
        return a.format == b.format && a.width == b.width && a.height == b.height &&
               a.sampleAspectRatio.num == b.sampleAspectRatio.num &&
               a.sampleAspectRatio.den == b.sampleAspectRatio.den;
    }
};

/// How many bytes behind the last pixel of a picture are there to be overwritten: the scaler writes whole
/// registers.
inline constexpr std::size_t kPictureTailBytes = 64;

/// The pixel format of the pictures that leave the engine: blue, green, red, alpha, one byte each.
extern const int kBgra;

/// As log lines show it: " fmt: 0, w: 1920, h: 1080, sar: 1/1".
std::ostream& operator<<(std::ostream& out, const VideoParams& params);

/// Format of interleaved or planar sound.
struct AudioParams {
    int format = -1;    ///< an AVSampleFormat, -1 for none
    int sampleRate = 0; ///< Hz
    int channels = 0;
    std::uint64_t channelLayout = 0; ///< FFmpeg channel mask
    int frameSize = 0;               ///< bytes of one sample in all channels
    int bytesPerSecond = 0;

    friend bool operator==(const AudioParams&, const AudioParams&) = default;
};

// Rates beyond these are nonsense or an attack: buffers that are measured in time have no byte at 1 Hz and a
// gigabyte at 1 GHz. Codecs begin at 5,512 Hz (the lowest of an FLV tag), and sound cards end at 192,000.
inline constexpr int kLowestSampleRate = 4000;     ///< Hz
inline constexpr int kHighestSampleRate = 192'000; ///< Hz

/// Whether sound can have that rate.
[[nodiscard]] constexpr bool isSampleRate(int hz) noexcept {
    return hz >= kLowestSampleRate && hz <= kHighestSampleRate;
}

/// What a sound device gets for such sound: interleaved signed 16-bit samples, in the rate and with the
/// channels of `in`, in the usual layout for that many. Frame size and bytes per second are left at 0.
[[nodiscard]] AudioParams deviceParams(const AudioParams& in);

} // namespace ko_player
