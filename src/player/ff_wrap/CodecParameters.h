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

/// Replaces the extradata by `size` bytes that the caller fills, followed by FFmpeg's zeroed padding. Throws
/// std::runtime_error "allocExtradata failed to alloc side"; the parameters then have no extradata.
void allocExtradata(AVCodecParameters& parameters, std::size_t size);

} // namespace ko_player::ff_wrap
