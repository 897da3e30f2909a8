#include "flv/FlvPackets.h"

#include "base/BigEndian.h"

#include <array>

namespace ko_player::flv {
namespace {

constexpr std::uint32_t kMp3 = 2;
constexpr std::uint32_t kALaw = 7;
constexpr std::uint32_t kMuLaw = 8;
constexpr std::uint32_t kAac = 10;

/// By SoundRate. The codecs that matter carry the exact rate themselves.
constexpr std::array<std::uint32_t, 4> kSampleRates{5500, 11000, 22000, 44000};

constexpr unsigned kAvc = 7;
constexpr unsigned kHevc = 12;
constexpr std::size_t kVideoHeaderSize = 5; // FrameType and CodecID, AVCPacketType, CompositionTime SI24

template <class PacketType>
ParsedTag<PacketType>& withPayload(ParsedTag<PacketType>& tag, std::span<const std::uint8_t> payload) {
    tag.packet.data = payload.data();
    tag.packet.size = static_cast<std::uint32_t>(payload.size());
    tag.packet.valid = !payload.empty();
    return tag;
}

/// AVCPacketType 1: only the first NAL unit's length is checked.
bool holdsFirstNalUnit(std::span<const std::uint8_t> payload) {
    constexpr std::size_t kLengthSize = 4;
    if (payload.size() <= kLengthSize) {
        return false;
    }
    return base::readU32(payload.data()) <= payload.size() - kLengthSize;
}

} // namespace

ParsedTag<AudioPacket> parseAudioTag(std::uint32_t timestampMs, std::span<const std::uint8_t> body) {
    ParsedTag<AudioPacket> tag;
    AudioPacket& packet = tag.packet;
    if (body.size() < 2) {
        tag.error = "size is less than header size: " + std::to_string(body.size());
        return tag;
    }
    packet.timestamp = timestampMs;
    packet.soundFormat = body[0] >> 4U; // SoundFormat UB4
    switch (packet.soundFormat) {
    case kMp3:
    case kALaw:
    case kMuLaw:
    case kAac:
        break;
    default:
        tag.error = "unsupported fmt: " + std::to_string(packet.soundFormat);
        return tag;
    }
    packet.sampleRate = kSampleRates[body[0] >> 2U & 3U]; // SoundRate UB2
    packet.is16Bit = (body[0] & 2U) != 0;                 // SoundSize UB1
    packet.channels = (body[0] & 1U) + 1;                 // SoundType UB1
    std::size_t headerSize = 1;
    if (packet.soundFormat == kAac) {
        packet.isSequenceHeader = body[1] == 0; // AACPacketType UI8
        headerSize = 2;
    }
    withPayload(tag, body.subspan(headerSize));
    if (!packet.valid) {
        tag.error = "data size is 0";
    }
    return tag;
}

ParsedTag<VideoPacket> parseVideoTag(std::uint32_t timestampMs, std::span<const std::uint8_t> body) {
    ParsedTag<VideoPacket> tag;
    VideoPacket& packet = tag.packet;
    if (body.size() <= 1) {
        tag.error = " size <= headerSize";
        return tag;
    }
    packet.timestamp = timestampMs;
    const unsigned codec = body[0] & 0x0FU; // CodecID UB4
    if (codec != kAvc && codec != kHevc) {
        tag.error = " invalid video codec";
        return tag;
    }
    switch (body[0] >> 4U) { // FrameType UB4
    case 1:                  // key frame
    case 4:                  // generated key frame
        packet.isKeyFrame = true;
        break;
    case 2: // inter frame
        break;
    default:
        tag.error = " undef frameType";
        return tag;
    }
    // What is wrong from here on is not told: the report of such a tag carries no reason.
    if (body.size() < kVideoHeaderSize) {
        return tag;
    }
    const auto payload = body.subspan(kVideoHeaderSize);
    switch (body[1]) { // AVCPacketType UI8
    case 0:            // decoder configuration record
        packet.isSequenceHeader = true;
        withPayload(tag, payload);
        break;
    case 1: // NAL units
        if (holdsFirstNalUnit(payload)) {
            withPayload(tag, payload);
        }
        break;
    default: // end of sequence, or unknown
        break;
    }
    return tag;
}

} // namespace ko_player::flv
