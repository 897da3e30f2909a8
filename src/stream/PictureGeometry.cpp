#include "stream/PictureGeometry.h"

#include <cstdint>
#include <limits>

namespace {

// Beyond these a header is broken rather than a picture that wide or that narrow.
constexpr double kNarrowest = 0.4;
constexpr double kWidest = 3.0;

constexpr std::int64_t roundUpTo16(std::int64_t pixels) {
    return (pixels + 15) & ~std::int64_t{15};
}

} // namespace

PictureGeometry pictureGeometry(const ko_player::VideoParams& in) {
    PictureGeometry out{in, AspectRule::Square};
    out.params.format = ko_player::kBgra;

    // The ratio comes from the stream, so the products are made in 64 bits.
    const std::int64_t num = in.sampleAspectRatio.num;
    const std::int64_t den = in.sampleAspectRatio.den;
    if (num == 0 || den == 0 || num == den) {
        return out;
    }
    out.rule = AspectRule::Ignored;
    const double ratio = static_cast<double>(num) / static_cast<double>(den);
    if (ratio < kNarrowest || ratio > kWidest) {
        return out;
    }
    const bool narrow = num <= den;
    const std::int64_t stretched = roundUpTo16(narrow ? in.height * den / num : num * in.width / den);
    if (stretched < 1 || stretched > std::numeric_limits<int>::max()) {
        return out;
    }
    (narrow ? out.params.height : out.params.width) = static_cast<int>(stretched);
    out.rule = AspectRule::Stretched;
    return out;
}
