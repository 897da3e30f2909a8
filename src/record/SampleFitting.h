#pragma once

#include "ffmpeg/CodecParameters.h"
#include "ffmpeg/Packet.h"

#include <memory>

struct AVCodecParameters;

/// What packets and parameters of a stream need so that an MP4 file can hold them.
namespace ko_player {

/// A copy of a sound's parameters, with a configuration for AAC that came without. Throws std::runtime_error
/// where the sound says too little, or nonsense.
[[nodiscard]] ff_wrap::CodecParametersPtr fittingParameters(const AVCodecParameters& parameters);

/// Whether a file whose header was made for `inFile` can hold sound with the other parameters.
[[nodiscard]] bool isSameSound(const AVCodecParameters& inFile, const AVCodecParameters& parameters);

/// Whether the packet says that from here on the sound is configured otherwise than the file says.
[[nodiscard]] bool bringsNewConfiguration(const ff_wrap::Packet& packet, const AVCodecParameters& inFile);

/// Takes the header off a frame of AAC that is framed by itself (ADTS); `codecId` is an AVCodecID. Other
/// packets stay as they are.
void makeFit(ff_wrap::Packet& packet, int codecId);

/// A picture that brings a new configuration, with the parameter sets of that in front of it. Any other comes
/// back as it is. Throws std::bad_alloc.
[[nodiscard]] std::shared_ptr<ff_wrap::Packet> withParameterSets(std::shared_ptr<ff_wrap::Packet> packet,
                                                                 int codecId);

} // namespace ko_player
