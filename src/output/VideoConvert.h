#pragma once

#include "records/MediaParams.h"

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

struct AVFrame;
struct SwsContext;

namespace ko_player {

/// Turns decoded pictures of one geometry into the picture format that the handler asked for, in a flat
/// buffer whose rows are packed. Used by the video output thread only.
class VideoConvert {
public:
    /// `buffer` has the size of the output picture and kPictureTailBytes more and outlives the converter;
    /// null makes it allocate its own. Throws std::runtime_error "VideoConvert: sws creating failed" or
    /// "VideoConvert: out bufSize <= 0".
    VideoConvert(const VideoParams& in, const VideoParams& out, std::uint8_t* buffer);

    /// Scales the picture into the buffer. Returns a negative FFmpeg error code on failure.
    [[nodiscard]] int convert(const AVFrame& frame);

    [[nodiscard]] const VideoParams& in() const noexcept { return in_; }
    [[nodiscard]] const std::uint8_t* buffer() const noexcept { return buffer_; }
    /// Size of the output picture in bytes.
    [[nodiscard]] int bufferSize() const noexcept { return bufferSize_; }

private:
    struct FreeContext {
        void operator()(SwsContext* context) const noexcept;
    };

    std::unique_ptr<SwsContext, FreeContext> context_;
    VideoParams in_;
    VideoParams out_;
    std::array<int, 4> lineSizes_{};
    std::vector<std::uint8_t> ownBuffer_; ///< used only when no outside buffer was given
    std::uint8_t* buffer_ = nullptr;
    int bufferSize_ = 0;
};

} // namespace ko_player
