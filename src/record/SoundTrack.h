#pragma once

#include "ffmpeg/CodecParameters.h"
#include "record/AacTranscoder.h"
#include "record/Muxer.h"

#include <cstdint>
#include <memory>

namespace ko_player {

/// The sound of a file in the standard reading: converts what an MP4 file cannot hold, and tells what it
/// cannot follow. What goes wrong is thrown, as std::runtime_error with a reason for people.
class SoundTrack {
public:
    using PacketPtr = std::shared_ptr<ff_wrap::Packet>;
    using Sink = AacTranscoder::Sink;

    /// For sound with these parameters.
    SoundTrack(const AVCodecParameters& parameters, const Muxer& muxer);

    /// What the file is told of it, good as long as this lives. `originMs` is the time that counts as 0.
    [[nodiscard]] Muxer::StreamSource source(std::int64_t originMs) const;

    /// Whether the file can hold sound with these parameters in this track.
    [[nodiscard]] bool fits(const AVCodecParameters& parameters) const;

    /// Gives to `sink` what is to be written.
    void take(PacketPtr packet, const Sink& sink);
    /// No more input: gives the rest to `sink`.
    void finish(const Sink& sink);

private:
    ff_wrap::CodecParametersPtr incoming_;      ///< the sound as it comes
    std::unique_ptr<AacTranscoder> transcoder_; ///< for sound that a file cannot hold
};

} // namespace ko_player
