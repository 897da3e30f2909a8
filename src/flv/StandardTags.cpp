#include "flv/StandardTags.h"

#include "base/BigEndian.h"

#include <array>
#include <cstddef>

namespace ko_player::flv {
namespace {

using Bytes = std::span<const std::uint8_t>;

/// By SoundRate, in Hz.
constexpr std::array<std::uint32_t, 4> kSampleRates{5512, 11025, 22050, 44100};

constexpr std::uint32_t kAac = 10;            // SoundFormat
constexpr std::uint32_t kEnhancedSound = 9;   // SoundFormat: an ExAudioTagHeader
constexpr unsigned kEnhancedPictures = 0x80U; // IsExVideoHeader: an ExVideoTagHeader

constexpr unsigned kKeyFrame = 1;          // FrameType
constexpr unsigned kGeneratedKeyFrame = 4; // FrameType
constexpr unsigned kCommandFrame = 5;      // FrameType

/// AVCPacketType and AACPacketType, and the same two of the enhanced tags.
constexpr unsigned kSequenceStart = 0;
constexpr unsigned kCodedFrames = 1;
/// VideoPacketType: frames whose composition time is 0.
constexpr unsigned kCodedFramesX = 3;

constexpr std::uint8_t kDefaultTrack = 0;

/// Takes bytes from the front. Once some are missing all that is taken is empty, and `isCutOff` is set.
class Cursor {
public:
    explicit Cursor(Bytes bytes) : bytes_(bytes) {}

    Bytes take(std::size_t count) {
        if (count > bytes_.size()) {
            bytes_ = {};
            isCutOff_ = true;
            return {};
        }
        const Bytes taken = bytes_.first(count);
        bytes_ = bytes_.subspan(count);
        return taken;
    }
    Bytes rest() { return take(bytes_.size()); }
    unsigned u8() { return number(1); }
    unsigned u16() { return number(2); }
    unsigned u24() { return number(3); }
    std::uint32_t u32() { return number(4); }
    std::int32_t s24() {
        const auto value = static_cast<std::int32_t>(u24());
        return value < 0x800000 ? value : value - 0x1000000;
    }
    [[nodiscard]] bool isCutOff() const { return isCutOff_; }
    [[nodiscard]] bool empty() const { return bytes_.empty(); }

private:
    std::uint32_t number(std::size_t count) {
        std::uint32_t value = 0;
        for (const std::uint8_t byte : take(count)) {
            value = value << 8U | byte;
        }
        return value;
    }

    Bytes bytes_;
    bool isCutOff_ = false;
};

/// The packet types that say more about the header itself, as sound and pictures number them.
struct EnhancedTypes {
    unsigned multitrack;
    unsigned modEx;
};
constexpr EnhancedTypes kSoundTypes{.multitrack = 5, .modEx = 7};
constexpr EnhancedTypes kPictureTypes{.multitrack = 6, .modEx = 7};

/// What an enhanced tag holds for the chosen track.
struct EnhancedBody {
    unsigned packetType = 0;
    std::uint32_t fourCc = 0;
    Bytes data;
    bool isForNobody = false;
    const char* error = nullptr;
};

bool admits(TrackChoice& track, std::uint8_t id) {
    if (!track.chosen) {
        track.chosen = id;
    }
    track.hasOthers = track.hasOthers || *track.chosen != id;
    return *track.chosen == id;
}

/// Steps over ModEx, any number of them, and returns the packet type behind the last.
unsigned skipModEx(Cursor& in, unsigned packetType, unsigned modEx) {
    while (packetType == modEx && !in.isCutOff()) {
        constexpr std::size_t kLongSize = 256;
        std::size_t size = std::size_t{in.u8()} + 1; // modExDataSize UI8
        if (size == kLongSize) {
            size = std::size_t{in.u16()} + 1; // UI16
        }
        in.take(size);
        packetType = in.u8() & 0x0FU; // ModExType UB4, packet type UB4
    }
    return packetType;
}

/// Reads the tracks of a multitrack tag; the first that is admitted counts.
EnhancedBody readTracks(Cursor& in, TrackChoice& track) {
    enum : unsigned { kOneTrack = 0, kManyTracks = 1, kManyTracksManyCodecs = 2 };
    const unsigned types = in.u8(); // AvMultitrackType UB4, packet type UB4
    const unsigned multitrack = types >> 4U;
    EnhancedBody body;
    body.packetType = types & 0x0FU;
    if (multitrack > kManyTracksManyCodecs) {
        body.error = "unknown multitrack type";
        return body;
    }
    std::uint32_t codec = multitrack == kManyTracksManyCodecs ? 0 : in.u32(); // FourCC
    bool isFound = false;
    do {
        if (multitrack == kManyTracksManyCodecs) {
            codec = in.u32(); // FourCC
        }
        const auto id = static_cast<std::uint8_t>(in.u8());                         // trackId UI8
        const Bytes data = multitrack == kOneTrack ? in.rest() : in.take(in.u24()); // size UI24
        if (in.isCutOff()) {
            break;
        }
        if (admits(track, id) && !isFound) {
            isFound = true;
            body.fourCc = codec;
            body.data = data;
        }
    } while (!in.empty());
    if (!isFound && in.isCutOff()) {
        body.error = "enhanced header is cut off";
    }
    body.isForNobody = !isFound && body.error == nullptr;
    return body;
}

/// Reads an enhanced tag from behind its first byte.
EnhancedBody readEnhanced(Cursor in, unsigned firstPacketType, const EnhancedTypes& types,
                          TrackChoice& track) {
    EnhancedBody body;
    body.packetType = skipModEx(in, firstPacketType, types.modEx);
    if (body.packetType == types.multitrack && !in.isCutOff()) {
        return readTracks(in, track);
    }
    body.fourCc = in.u32(); // FourCC
    if (in.isCutOff()) {
        body.error = "enhanced header is cut off";
        return body;
    }
    body.data = in.rest();
    body.isForNobody = !admits(track, kDefaultTrack);
    return body;
}

template <class PacketType>
void setPayload(ParsedTag<PacketType>& tag, Bytes payload) {
    tag.packet.data = payload.data();
    tag.packet.size = static_cast<std::uint32_t>(payload.size());
    tag.packet.valid = !payload.empty();
    tag.isForNobody = payload.empty();
}

void readEnhancedSound(ParsedTag<AudioPacket>& tag, Bytes body, TrackChoice& track) {
    const EnhancedBody enhanced = readEnhanced(Cursor(body.subspan(1)), body[0] & 0x0FU, kSoundTypes, track);
    tag.packet.soundFormat = enhanced.fourCc;
    if (enhanced.error != nullptr) {
        tag.error = enhanced.error;
    } else if (enhanced.isForNobody || enhanced.packetType > kCodedFrames) {
        tag.isForNobody = true; // end of sequence, channel configuration, or unknown
    } else {
        tag.packet.isSequenceHeader = enhanced.packetType == kSequenceStart;
        setPayload(tag, enhanced.data);
    }
}

bool carriesCompositionTime(std::uint32_t codec) {
    return codec == fourCc("avc1") || codec == fourCc("hvc1") || codec == fourCc("vvc1");
}

void readEnhancedPicture(ParsedTag<VideoPacket>& tag, Bytes body, TrackChoice& track) {
    const EnhancedBody enhanced =
        readEnhanced(Cursor(body.subspan(1)), body[0] & 0x0FU, kPictureTypes, track);
    tag.packet.codecId = enhanced.fourCc;
    if (enhanced.error != nullptr) {
        tag.error = std::string(" ") + enhanced.error;
        return;
    }
    Cursor data(enhanced.data);
    switch (enhanced.packetType) {
    case kSequenceStart:
        tag.packet.isSequenceHeader = true;
        break;
    case kCodedFrames:
        if (carriesCompositionTime(enhanced.fourCc)) {
            tag.packet.compositionMs = data.s24(); // CompositionTime SI24
        }
        break;
    case kCodedFramesX:
        break;
    default: // end of sequence, metadata, a configuration for MPEG-2 TS, or unknown
        tag.isForNobody = true;
        return;
    }
    if (enhanced.isForNobody) {
        tag.isForNobody = true;
    } else if (data.isCutOff()) {
        tag.error = " composition time is cut off";
    } else {
        setPayload(tag, data.rest());
    }
}

/// Whether a plain video tag has AVCPacketType and CompositionTime behind its first byte.
bool isAvcLike(std::uint32_t codecId) {
    constexpr std::uint32_t kAvc = 7;
    constexpr std::uint32_t kHevc = 12; // not in the public document, but long in use, as the next
    constexpr std::uint32_t kAv1 = 13;
    return codecId == kAvc || codecId == kHevc || codecId == kAv1;
}

void readPlainPicture(ParsedTag<VideoPacket>& tag, Bytes body) {
    Cursor in(body.subspan(1));
    tag.packet.codecId = body[0] & 0x0FU; // CodecID UB4
    if (isAvcLike(tag.packet.codecId)) {
        const unsigned packetType = in.u8(); // AVCPacketType UI8
        tag.packet.compositionMs = in.s24(); // CompositionTime SI24
        if (in.isCutOff()) {
            tag.error = " header is cut off";
            return;
        }
        tag.packet.isSequenceHeader = packetType == kSequenceStart;
        if (packetType > kCodedFrames) { // end of sequence, or unknown
            tag.isForNobody = true;
            return;
        }
    }
    setPayload(tag, in.rest());
}

} // namespace

ParsedTag<AudioPacket> parseStandardAudioTag(std::uint32_t timestampMs, Bytes body, TrackChoice& track) {
    ParsedTag<AudioPacket> tag;
    AudioPacket& packet = tag.packet;
    packet.timestamp = timestampMs;
    if (body.empty()) {
        tag.isForNobody = true;
        return tag;
    }
    packet.soundFormat = body[0] >> 4U; // SoundFormat UB4
    if (packet.soundFormat == kEnhancedSound) {
        readEnhancedSound(tag, body, track);
        return tag;
    }
    packet.sampleRate = kSampleRates[body[0] >> 2U & 3U]; // SoundRate UB2
    packet.is16Bit = (body[0] & 2U) != 0;                 // SoundSize UB1
    packet.channels = (body[0] & 1U) + 1;                 // SoundType UB1
    Cursor in(body.subspan(1));
    if (packet.soundFormat == kAac) {
        const unsigned packetType = in.u8(); // AACPacketType UI8
        packet.isSequenceHeader = packetType == kSequenceStart;
        if (packetType > kCodedFrames) {
            tag.isForNobody = true;
            return tag;
        }
    }
    if (admits(track, kDefaultTrack)) {
        setPayload(tag, in.rest());
    } else {
        tag.isForNobody = true;
    }
    return tag;
}

ParsedTag<VideoPacket> parseStandardVideoTag(std::uint32_t timestampMs, Bytes body, TrackChoice& track) {
    ParsedTag<VideoPacket> tag;
    tag.packet.timestamp = timestampMs;
    if (body.empty()) {
        tag.isForNobody = true;
        return tag;
    }
    const unsigned frameType = body[0] >> 4U & 7U; // FrameType UB3, behind IsExVideoHeader UB1
    tag.packet.isKeyFrame = frameType == kKeyFrame || frameType == kGeneratedKeyFrame;
    const bool isEnhanced = (body[0] & kEnhancedPictures) != 0;
    if (frameType == kCommandFrame || (!isEnhanced && !admits(track, kDefaultTrack))) {
        tag.isForNobody = true;
    } else if (isEnhanced) {
        readEnhancedPicture(tag, body, track);
    } else {
        readPlainPicture(tag, body);
    }
    return tag;
}

} // namespace ko_player::flv
