#pragma once

#include <cstddef>
#include <memory>

struct AVCodecParameters;

namespace ko_player::ff_wrap {

struct FreeCodecParameters {
    void operator()(AVCodecParameters* parameters) const noexcept;
};

using CodecParametersPtr = std::unique_ptr<AVCodecParameters, FreeCodecParameters>;

/// New, empty parameters. Throws std::runtime_error "avcodec_parameters_alloc failed".
[[nodiscard]] CodecParametersPtr makeCodecParameters();

/// Parameters of one medium, made when they are first looked at, so that their owner can be made while
/// libavcodec is still loading. One thread at a time.
class LazyCodecParameters {
public:
    /// `mediaType` is an AVMediaType.
    explicit LazyCodecParameters(int mediaType) : mediaType_(mediaType) {}

    /// Throws what makeCodecParameters() throws.
    [[nodiscard]] AVCodecParameters* get() const;
    AVCodecParameters* operator->() const { return get(); }
    AVCodecParameters& operator*() const { return *get(); }

private:
    int mediaType_;
    mutable CodecParametersPtr parameters_;
};

/// Replaces the extradata by `size` bytes that the caller fills, followed by FFmpeg's zeroed padding. Throws
/// std::runtime_error "allocExtradata failed to alloc side"; the parameters then have no extradata.
void allocExtradata(AVCodecParameters& parameters, std::size_t size);

} // namespace ko_player::ff_wrap
