#pragma once

#include "support/media/Clip.h"
#include "support/media/TestPicture.h"

#include <cstdint>
#include <vector>

namespace mediaworker::test {

struct DecodedPicture {
    int widthPx = 0;
    int heightPx = 0;
    std::int64_t stampMs = 0;
    std::vector<std::uint8_t> bgra;

    [[nodiscard]] BgraView view() const { return {bgra.data(), widthPx, heightPx, widthPx * 4}; }
};

/// Decodes with libavcodec from decode time stamps alone, without a flush at the end, and scales to the given
/// size (0: as it is).
[[nodiscard]] std::vector<DecodedPicture> decode(const Clip& clip, int widthPx = 0, int heightPx = 0);

} // namespace mediaworker::test
