#pragma once

#include "ffmpeg/CodecParameters.h"
#include "ffmpeg/Packet.h"

#include <cstdint>
#include <memory>
#include <vector>

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

/// Puts the parameter sets of a configuration that a file's header does not have among the pictures.
class ConfigurationFollower {
public:
    using PacketPtr = std::shared_ptr<ff_wrap::Packet>;

    /// Notices a new configuration. For every picture of the stream, in its order; `codecId` is an AVCodecID.
    void notice(const ff_wrap::Packet& picture, int codecId);
    /// From the first new configuration on each key frame, where players may begin after a seek, comes back
    /// with the parameter sets in front, and so does a picture that brought one. Any other comes back as it
    /// is. Throws std::bad_alloc.
    [[nodiscard]] PacketPtr withParameterSets(PacketPtr picture) const;

private:
    std::vector<std::uint8_t> sets_; ///< in force, where they are not those of the header
};

} // namespace ko_player
