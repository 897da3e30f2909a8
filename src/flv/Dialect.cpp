#include "flv/Dialect.h"

#include "flv/StandardTags.h"

namespace ko_player::flv {
namespace {

constexpr std::uint8_t kVideoFlag = 0x01;
constexpr std::uint8_t kReservedFlag = 0x02;
constexpr std::uint8_t kAudioFlag = 0x04;

constexpr Dialect kStrict{
    .refusedHeaderFlags = 0xFA,
    // Not the audio flag, on purpose: what is reported as audio follows the low bits.
    .audioHeaderFlags = kVideoFlag | kReservedFlag,
    .tagTypeMask = 0xFF,
    .checksBackPointers = true,
    .checksStreamIds = true,
    .skipsUnknownTags = false,
    .parseAudioTag = [](std::uint32_t timestampMs, std::span<const std::uint8_t> body,
                        TrackChoice&) { return parseAudioTag(timestampMs, body); },
    .parseVideoTag = [](std::uint32_t timestampMs, std::span<const std::uint8_t> body,
                        TrackChoice&) { return parseVideoTag(timestampMs, body); },
    .script = {.onlyPlainArrays = true},
    .announcement = Announcement::ByMetadata,
    .hasPresentationTimes = false,
    .continuesTime = false,
};

constexpr Dialect kStandard{
    .refusedHeaderFlags = 0,
    .audioHeaderFlags = kAudioFlag,
    // Without the reserved bits. A tag with the filter bit is encrypted, which makes its type an unknown one.
    .tagTypeMask = 0x3F,
    // Live servers and several writers get them wrong, above all the first one, and nobody else looks.
    .checksBackPointers = false,
    .checksStreamIds = false,
    .skipsUnknownTags = true,
    .parseAudioTag = parseStandardAudioTag,
    .parseVideoTag = parseStandardVideoTag,
    .script = {.onlyPlainArrays = false},
    .announcement = Announcement::ByPackets,
    .hasPresentationTimes = true,
    .continuesTime = true,
};

} // namespace

const Dialect& dialectOf(FlvReading reading) {
    return reading == FlvReading::Strict ? kStrict : kStandard;
}

} // namespace ko_player::flv
