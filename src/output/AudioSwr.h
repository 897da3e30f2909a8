#pragma once

#include "records/MediaParams.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

struct AVFrame;
struct SwrContext;

namespace ko_player {

/// Turns decoded sound of any format into one output format, as one packed block of bytes. Sound that is in
/// the output format already passes through without a copy, until the first frame that is not. Used by the
/// audio output thread only.
class AudioSwr {
public:
    explicit AudioSwr(const AudioParams& out);

    /// Returns the size in bytes (at least 1) and the bytes, or a negative FFmpeg error code (or 0) and null.
    /// The bytes stay valid until the next call, and no longer than `frame`. A failure leaves the converter
    /// as it was.
    [[nodiscard]] std::pair<int, const std::uint8_t*> convert(const AVFrame& frame);

    /// Makes sound last shorter (or longer) by so many millionths from now on, a few thousand at most. 0: as
    /// it comes. Takes effect at the next conversion, where the format can be resampled.
    void setSpeedUp(int ppm) { speedUpPpm_ = ppm; }

private:
    struct Format {
        int sampleFormat;
        int sampleRate; ///< Hz
        int channels;
        std::uint64_t channelLayout; ///< FFmpeg channel mask

        friend bool operator==(const Format&, const Format&) = default;
    };
    struct FreeContext {
        void operator()(SwrContext* context) const noexcept;
    };
    using ContextPtr = std::unique_ptr<SwrContext, FreeContext>;

    [[nodiscard]] ContextPtr makeContext(const Format& in) const;
    [[nodiscard]] std::pair<int, const std::uint8_t*> passThrough(const AVFrame& frame) const;
    [[nodiscard]] std::pair<int, const std::uint8_t*> resample(const AVFrame& frame);
    void compensate();

    ContextPtr context_;                ///< absent until the first conversion is needed
    std::vector<std::uint8_t> output_;  ///< only grows, so steady playback allocates nothing
    std::vector<std::uint8_t*> planes_; ///< into output_; one for a packed format
    Format in_;
    const Format out_;
    int speedUpPpm_ = 0;
    bool compensates_ = false; ///< the context does; so does each that follows it
};

} // namespace ko_player
