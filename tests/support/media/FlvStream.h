#pragma once

#include "support/FlvWriter.h"
#include "support/media/Clip.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace mediaworker::test {

enum class PieceKind { Header, Metadata, Config, Video, Audio };

/// A piece of a stream, with the time since the stream's begin at which a live server has it ready.
struct TimedBytes {
    std::int64_t ms = 0;
    std::vector<std::uint8_t> bytes;
    PieceKind kind = PieceKind::Video;
    bool isKey = false;
};

struct TimedMetadata {
    /// Since the stream's begin: it goes out before the first frame of that time or later.
    std::int64_t ms = 0;
    AmfValue::Properties properties;
};

struct FlvOptions {
    bool hasMetadata = true;
    AmfValue::Properties metadata;            ///< added to, or replacing, those that describe the clip
    std::vector<std::string> withoutMetadata; ///< names left out
    bool metadataForEveryClip = false;
    bool hasSequenceHeaders = true;
    bool hasAudio = true;
    bool hasCompositionTimes = true;
    /// Enhanced tags for the codecs that have none of FLV's own numbers, or for all but G.711.
    bool isEnhanced = false;
    bool endOfSequence = false;                  ///< a video tag of packet type 2 at the end
    std::optional<std::uint8_t> audioHeaderByte; ///< otherwise as the clip's sound asks for
    std::optional<std::uint8_t> headerFlags;
    std::uint32_t startMs = 0; ///< added to every tag's time stamp, wraps at 2^32
    int repeats = 1;           ///< the clips one after the other, this many times; time goes on
    std::vector<TimedMetadata> timedMetadata;
};

/// The first byte of an audio tag for the clip's sound, 0xAF for AAC in stereo; also what a server sends as
/// "audiocodecid".
[[nodiscard]] std::uint8_t audioHeaderByteOf(const ClipSpec& spec);

/// The stream as a camera server sends it: header, metadata, decoder configurations, then sound and pictures
/// in the order of their decode times. Several clips follow each other, each with its own configurations.
[[nodiscard]] std::vector<TimedBytes> makeFlv(const std::vector<const Clip*>& clips,
                                              const FlvOptions& options = {});
[[nodiscard]] std::vector<TimedBytes> makeFlv(const Clip& clip, const FlvOptions& options = {});

/// All pieces in one.
[[nodiscard]] std::vector<std::uint8_t> toBytes(const std::vector<TimedBytes>& pieces);

} // namespace mediaworker::test
