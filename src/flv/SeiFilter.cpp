#include "flv/SeiFilter.h"

#include "base/BigEndian.h"

namespace ko_player {

bool isSupplementalOnly(AVCodecID codec, std::span<const std::uint8_t> payload) {
    constexpr std::size_t kLengthSize = 4;
    if (payload.size() <= kLengthSize) {
        return true;
    }
    const unsigned nalHeader = payload[kLengthSize];
    if (codec == AV_CODEC_ID_HEVC) {
        const unsigned type = nalHeader & 0x7EU; // nal_unit_type UB6, one bit up
        return type == 39U << 1U || type == 40U << 1U;
    }
    constexpr unsigned kSei = 6;
    const std::uint64_t firstNalSize = base::readU32(payload.data());
    return (nalHeader & 0x1FU) == kSei && payload.size() < firstNalSize + kLengthSize + 1;
}

} // namespace ko_player
