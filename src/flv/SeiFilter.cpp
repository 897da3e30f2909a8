#include "flv/SeiFilter.h"

#include "base/BigEndian.h"

#include <algorithm>

namespace ko_player {
namespace {

/// Supplemental information or an access unit delimiter, by the first byte of a NAL unit.
bool isBesidePictures(AVCodecID codec, unsigned nalHeader) {
    if (codec == AV_CODEC_ID_HEVC) {
        const unsigned type = nalHeader >> 1U & 0x3FU; // nal_unit_type UB6
        return type == 35 || type == 39 || type == 40;
    }
    const unsigned type = nalHeader & 0x1FU; // nal_unit_type UB5
    return type == 6 || type == 9;
}

} // namespace

bool holdsNoPicture(AVCodecID codec, std::span<const std::uint8_t> payload, std::size_t lengthSize) {
    if (lengthSize == 0) {
        return false;
    }
    while (payload.size() > lengthSize) {
        std::uint64_t nalSize = 0;
        for (const std::uint8_t byte : payload.first(lengthSize)) {
            nalSize = nalSize << 8U | byte;
        }
        payload = payload.subspan(lengthSize);
        if (nalSize > 0 && !isBesidePictures(codec, payload[0])) {
            return false;
        }
        payload = payload.subspan(static_cast<std::size_t>(std::min<std::uint64_t>(nalSize, payload.size())));
    }
    return true;
}

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
