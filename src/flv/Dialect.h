#pragma once

#include "flv/FlvPackets.h"
#include "flv/ScriptData.h"
#include "records/Options.h"

#include <cstdint>
#include <span>

namespace ko_player::flv {

/// Where the codec of a stream is found, and with it the moment of its announcement.
enum class Announcement {
    ByMetadata, ///< in the metadata: the first packet announces what they said
    ByPackets,  ///< in the packets: the first that can be decoded announces what it is
};

/// Every decision that the readings of FLV do not share. Tag reader, script data and adaptor look here and
/// nowhere else.
struct Dialect {
    // The file's structure.
    std::uint8_t refusedHeaderFlags; ///< of the file header's flags: any of them ends the stream
    std::uint8_t audioHeaderFlags;   ///< any of them means sound
    std::uint8_t tagTypeMask;        ///< the bits of a tag's first byte that tell its type
    bool checksBackPointers;         ///< a wrong one ends the stream
    bool checksStreamIds;            ///< another than 0 ends the stream
    bool skipsUnknownTags;           ///< otherwise they end the stream

    // The bodies of tags.
    ParsedTag<AudioPacket> (*parseAudioTag)(std::uint32_t timestampMs, std::span<const std::uint8_t> body,
                                            TrackChoice& track);
    ParsedTag<VideoPacket> (*parseVideoTag)(std::uint32_t timestampMs, std::span<const std::uint8_t> body,
                                            TrackChoice& track);
    ScriptRules script;

    // What is made of them.
    Announcement announcement;
    bool hasPresentationTimes; ///< packets have one
    /// Time goes on where the 32 bits of a tag's time stamp wrap, and where the stream's clock starts anew;
    /// otherwise a packet has its tag's stamp.
    bool continuesTime;
};

[[nodiscard]] const Dialect& dialectOf(FlvReading reading);

} // namespace ko_player::flv
