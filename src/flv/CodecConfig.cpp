#include "flv/CodecConfig.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace ko_player {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kAvcNalLengthAt = 4;   // avcC: reserved UB6, lengthSizeMinusOne UB2
constexpr std::size_t kHevcNalLengthAt = 21; // hvcC: ..., lengthSizeMinusOne UB2

bool startsWith(Bytes bytes, std::string_view text) {
    return bytes.size() >= text.size() &&
           std::equal(text.begin(), text.end(), bytes.begin(),
                      [](char c, std::uint8_t byte) { return static_cast<std::uint8_t>(c) == byte; });
}

/// STREAMINFO alone, without the marker and the block's header that may stand before it.
Bytes flacStreamInfo(Bytes config) {
    constexpr std::size_t kStreamInfoSize = 34;
    constexpr std::size_t kBlockHeaderSize = 4;
    constexpr std::string_view kMarker = "fLaC";
    if (startsWith(config, kMarker)) {
        config = config.subspan(kMarker.size());
    }
    if (config.size() >= kBlockHeaderSize + kStreamInfoSize) {
        config = config.subspan(kBlockHeaderSize);
    }
    return config.size() >= kStreamInfoSize ? config.first(kStreamInfoSize) : Bytes{};
}

/// The bits that are always set in a record, where it has them.
struct ReservedBits {
    std::size_t at;
    std::uint8_t mask;
};
constexpr std::array<ReservedBits, 2> kAvcReserved{{{4, 0xFC}, {5, 0xE0}}};
constexpr std::array<ReservedBits, 5> kHevcReserved{
    {{13, 0xF0}, {15, 0xFC}, {16, 0xFC}, {17, 0xF8}, {18, 0xF8}}};

bool hasForm(AVCodecID codec, Bytes config) {
    const auto reserved = codec == AV_CODEC_ID_HEVC ? std::span<const ReservedBits>(kHevcReserved)
                                                    : std::span<const ReservedBits>(kAvcReserved);
    const std::size_t smallest = codec == AV_CODEC_ID_HEVC ? kHevcNalLengthAt + 1 : kAvcNalLengthAt + 2;
    return config.size() >= smallest &&
           std::all_of(reserved.begin(), reserved.end(),
                       [&](const ReservedBits& bits) { return (config[bits.at] & bits.mask) == bits.mask; });
}

bool hasStartCode(Bytes frame) {
    constexpr std::string_view kShort("\0\0\1", 3);
    constexpr std::string_view kLong("\0\0\0\1", 4);
    return startsWith(frame, kShort) || startsWith(frame, kLong);
}

bool isAdts(Bytes frame) {
    return frame.size() > 1 && frame[0] == 0xFF && (frame[1] & 0xF6U) == 0xF0;
}

} // namespace

std::vector<std::uint8_t> extradataOf(AVCodecID codec, Bytes config) {
    std::size_t smallest = 1;
    switch (codec) {
    case AV_CODEC_ID_H264:
        smallest = kAvcNalLengthAt + 1;
        break;
    case AV_CODEC_ID_HEVC:
        smallest = kHevcNalLengthAt + 1;
        break;
    case AV_CODEC_ID_AAC:
        smallest = 2;
        break;
    case AV_CODEC_ID_FLAC:
        config = flacStreamInfo(config);
        break;
    case AV_CODEC_ID_AV1:
    case AV_CODEC_ID_OPUS:
        break;
    default:
        return {};
    }
    if (config.size() < smallest) {
        return {};
    }
    return {config.begin(), config.end()};
}

AVCodecID codecOfConfig(AVCodecID codec, Bytes config) {
    if (codec != AV_CODEC_ID_H264 && codec != AV_CODEC_ID_HEVC) {
        return codec;
    }
    const AVCodecID other = codec == AV_CODEC_ID_H264 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
    return !hasForm(codec, config) && hasForm(other, config) ? other : codec;
}

bool needsConfig(AVCodecID codec, Bytes frame) {
    switch (codec) {
    case AV_CODEC_ID_H264:
    case AV_CODEC_ID_HEVC:
        return !hasStartCode(frame);
    case AV_CODEC_ID_AAC:
        return !isAdts(frame);
    case AV_CODEC_ID_FLAC:
        return true;
    default:
        return false;
    }
}

std::vector<std::uint8_t> defaultConfig(AVCodecID codec, Bytes frame) {
    if (codec != AV_CODEC_ID_OPUS || frame.empty()) {
        return {};
    }
    const auto channels = static_cast<std::uint8_t>((frame[0] & 4U) != 0 ? 2 : 1); // TOC: stereo
    // version, channels, pre-skip 312, 48000 Hz, gain 0, mapping family 0; numbers in little-endian order
    return {'O', 'p', 'u', 's', 'H', 'e', 'a', 'd', 1, channels, 0x38, 1, 0x80, 0xBB, 0, 0, 0, 0, 0};
}

std::size_t nalLengthSize(AVCodecID codec, Bytes extradata) {
    const std::size_t at = codec == AV_CODEC_ID_H264   ? kAvcNalLengthAt
                           : codec == AV_CODEC_ID_HEVC ? kHevcNalLengthAt
                                                       : extradata.size();
    return at < extradata.size() ? (extradata[at] & 3U) + 1 : 0;
}

} // namespace ko_player
