#pragma once

#include "ffmpeg/CodecParameters.h"
#include "ffmpeg/Packet.h"
#include "flv/CodecMapping.h"
#include "flv/FlvPackets.h"
#include "flv/MetaInfo.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace ko_player {

/// What becomes of a packet.
enum class Verdict { Drop, Pass, AnnounceAndPass };

/// Log lines that are said once each, and not without bound.
class Complaints {
public:
    void say(const std::string& line);

private:
    std::vector<std::string> said_;
};

/// Decides from the packets of one kind, in the order of the stream, what the stream is: the reading that
/// believes packets and not metadata. Used on the thread that feeds the reader.
class PacketIntake {
public:
    explicit PacketIntake(const char* complaint) : complaint_(complaint) {}

    /// The codec that was announced, none before that.
    [[nodiscard]] AVCodecID announced() const { return announced_; }

protected:
    ~PacketIntake() = default;

    /// False for a codec that cannot be played, or another than the announced one, which is said.
    [[nodiscard]] bool isPlayable(AVCodecID codec, const std::string& name);
    /// Takes a configuration, and gives it to `sideData` where a decoder has another already. False for one
    /// that is not new.
    bool takeConfig(AVCodecID codec, std::span<const std::uint8_t> bytes,
                    std::vector<std::uint8_t>& sideData);
    /// Counts a frame that is dropped for want of a configuration; says so once there are many.
    void countUndecodable(const std::string& name);
    void complain(const std::string& codecName, const std::string& reason);
    /// Where the metadata say another codec, a line about it.
    static void compare(AVCodecID inMetadata, AVCodecID inPackets);
    void announce(AVCodecID codec);

    AVCodecID candidate_ = AV_CODEC_ID_NONE; ///< whose configuration is held
    std::vector<std::uint8_t> config_;

private:
    const char* const complaint_; ///< "sound unavailable: " or "pictures unavailable: "
    AVCodecID announced_ = AV_CODEC_ID_NONE;
    int undecodable_ = 0;
    Complaints complaints_;
};

/// Pictures are announced with their first frame that can be decoded.
class VideoIntake final : public PacketIntake {
public:
    VideoIntake() : PacketIntake("pictures unavailable: ") {}

    /// Fills `parameters` before an announcement.
    [[nodiscard]] Verdict take(const flv::VideoPacket& packet, const MetaInfo& metadata,
                               const ff_wrap::LazyCodecParameters& parameters,
                               std::vector<std::uint8_t>& sideData);

private:
    /// The codec of a tag with that number, as far as a configuration has not shown another.
    [[nodiscard]] CodecName codecOf(const flv::VideoPacket& packet);
    void describe(const flv::VideoPacket& packet, AVCodecID codec, const MetaInfo& metadata,
                  AVCodecParameters& parameters) const;

    std::uint32_t misnumbered_ = 0; ///< the CodecID of tags that hold another codec
    AVCodecID misnumberedCodec_ = AV_CODEC_ID_NONE;
};

/// Sound is announced with the first frame that was decoded on trial, since only that tells its sample rate
/// and channels for sure.
class AudioIntake final : public PacketIntake {
public:
    AudioIntake() : PacketIntake("sound unavailable: ") {}

    /// Fills `parameters` before an announcement.
    [[nodiscard]] Verdict take(const flv::AudioPacket& packet, const MetaInfo& metadata,
                               const ff_wrap::LazyCodecParameters& parameters,
                               std::vector<std::uint8_t>& sideData);

    /// Fills `parameters` with what the sound is going to be, where configuration or metadata tell it before
    /// the first frame. False where they do not.
    [[nodiscard]] bool expect(const MetaInfo& metadata, AVCodecParameters& parameters) const;

private:
    void takeSoundConfig(const flv::AudioPacket& packet, AVCodecID codec, const std::string& name,
                         std::vector<std::uint8_t>& sideData);
    void refuseRate(const std::string& name, std::int64_t sampleRate);
    /// Finds a configuration for frames that came without, where that is possible.
    void improviseConfig(AVCodecID codec, std::span<const std::uint8_t> frame, const MetaInfo& metadata);
    /// Decodes the frame on trial and fills `parameters` where that succeeds.
    [[nodiscard]] bool probe(const flv::AudioPacket& packet, AVCodecID codec, const MetaInfo& metadata,
                             AVCodecParameters& parameters, const std::string& name);

    int failedProbes_ = 0; ///< since the configuration was new
};

} // namespace ko_player
