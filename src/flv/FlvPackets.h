#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ko_player::flv {

/// What audio and video tags share. Lives for the duration of the observer call.
struct Packet {
    Packet() = default;
    Packet(const Packet&) = default;
    Packet& operator=(const Packet&) = default;
    virtual ~Packet() = default;

    std::uint32_t timestamp = 0;        ///< milliseconds, the tag's
    const std::uint8_t* data = nullptr; ///< first payload byte, in the reader's memory
    std::uint32_t size = 0;             ///< payload bytes
    bool valid = false;                 ///< parsed, and the payload is not empty
};

struct AudioPacket : Packet {
    /// FLV SoundFormat: 2 MP3, 7 A-law, 8 mu-law, 10 AAC; or the FourCC of an enhanced tag
    std::uint32_t soundFormat = 0;
    std::uint32_t sampleRate = 0; ///< Hz, in round thousands or hundreds as FLV's index names it
    bool is16Bit = false;
    std::uint32_t channels = 0;
    bool isSequenceHeader = false; ///< the payload is the decoder's configuration
};

struct VideoPacket : Packet {
    /// FLV CodecID or the FourCC of an enhanced tag; 0 where the stream's metadata decide
    std::uint32_t codecId = 0;
    std::int32_t compositionMs = 0; ///< from decode to presentation time
    bool isKeyFrame = false;
    bool isSequenceHeader = false; ///< the payload is a decoder configuration record
};

/// Which of several tracks of one kind is read: the first that comes.
struct TrackChoice {
    std::optional<std::uint8_t> chosen;
    bool hasOthers = false;  ///< further tracks were skipped
    bool isReported = false; ///< and that has been said
};

/// A packet, or what is wrong with the tag's body.
template <class PacketType>
struct ParsedTag {
    PacketType packet;
    std::string
        error; ///< what follows the tag's name in the report; may be empty for an invalid video packet
    bool isForNobody = false; ///< there is no packet in it, and nothing is wrong
};

/// Reads the body of an audio tag.
[[nodiscard]] ParsedTag<AudioPacket> parseAudioTag(std::uint32_t timestampMs,
                                                   std::span<const std::uint8_t> body);

/// Reads the body of a video tag.
[[nodiscard]] ParsedTag<VideoPacket> parseVideoTag(std::uint32_t timestampMs,
                                                   std::span<const std::uint8_t> body);

} // namespace ko_player::flv
