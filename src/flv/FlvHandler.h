#pragma once

#include "ffmpeg/CodecParameters.h"
#include "ffmpeg/Packet.h"
#include "flv/ContinuousTime.h"
#include "flv/Dialect.h"
#include "flv/Medium.h"
#include "flv/MetaInfo.h"
#include "flv/Observer.h"
#include "flv/PacketIntake.h"
#include "flv/WrappingTime.h"
#include "records/Metadata.h"
#include "records/Options.h"

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavcodec/codec_par.h>
}

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ko_player {

/// Turns what the tag reader finds into codec parameters and FFmpeg packets (time base 1/1000). Both readings
/// share the way of a packet; they part where it is decided what the stream is: by its metadata, which the
/// first packet announces whatever it is, or by its packets. In the standard reading packets have both time
/// stamps, their time goes on where the stream's starts anew, and sound is announced with parameters that a
/// decoder has confirmed.
///
/// Everything, callbacks included, happens on the thread that feeds the reader. Allocation failures are
/// thrown as std::runtime_error or std::bad_alloc; anything else that is wrong is logged and costs one packet
/// or one kind of stream.
class FlvHandler final : public flv::Observer {
public:
    /// The longest codec configuration that is taken. What a parameter set can be is told by 16 bits; all of
    /// a real stream's together stay below 10 kB. Each is copied several times, and some of these are kept.
    static constexpr std::size_t kMaxConfigurationBytes = 0x10000;

    using ParamsCallback = std::function<bool(const AVCodecParameters*)>;
    using PacketCallback = std::function<void(std::shared_ptr<ff_wrap::Packet>)>;

    // Set these before the first byte; an empty one is skipped. The results of the two that announce
    // parameters are ignored. The parameters belong to the handler and may change later: copy what is kept.
    std::function<void(const Metadata&)> onMetadata;
    /// The picture size that the script data tells, in pixels, above zero.
    std::function<void(int width, int height)> expectPicture;
    ParamsCallback onVideoParams;
    PacketCallback onVideoPacket;
    ParamsCallback onAudioParams;
    PacketCallback onAudioPacket;

    explicit FlvHandler(FlvReading reading = FlvReading::Strict) : dialect_(flv::dialectOf(reading)) {}

    void onHeader(bool audio, bool video) override;
    void onVideoTag(const flv::VideoPacket& packet) override;
    void onAudioTag(const flv::AudioPacket& packet) override;
    void onScriptData(const flv::NumberProperties& properties) override;
    void onError(const std::string& message) override;

    [[nodiscard]] const AVCodecParameters& videoParams() const { return *videoParams_; }
    [[nodiscard]] const AVCodecParameters& audioParams() const { return *audioParams_; }

    /// In the standard reading: what the sound is going to be, where the stream tells it before the first
    /// frame. Null where it does not.
    [[nodiscard]] ff_wrap::CodecParametersPtr expectedAudio() const;

    /// Codec configuration that the next audio packet is to carry as new extradata.
    [[nodiscard]] std::vector<std::uint8_t>& pendingAudioSideData() { return pendingAudioSideData_; }

private:
    // The reading by metadata.
    void configureFrom(const MetaInfo& info);
    void handleVideoMetaInfo(AVCodecID codec, int width, int height);
    void handleAudioMetaInfo(AVCodecID codec, int sampleRate, std::int64_t sampleSize, int channels);
    void generateAacExtraData(int sampleRate, int channels);
    [[nodiscard]] Verdict takeByMetadata(const flv::VideoPacket& packet);
    [[nodiscard]] Verdict takeByMetadata(const flv::AudioPacket& packet);
    void onFirstVideoData(const flv::VideoPacket& packet);
    /// False where this packet goes no further.
    [[nodiscard]] bool onFirstAudioData(const flv::AudioPacket& packet);
    void initAacExtradataFromPacket(const flv::AudioPacket& packet);

    // The reading by packets.
    void remember(const MetaInfo& info);

    /// True, after a log line for the first, for a configuration that no codec has.
    [[nodiscard]] bool isAbsurd(const flv::Packet& packet, bool isSequenceHeader);

    /// A packet on its way to the callback, with its time stamps and the configuration that waits for it.
    [[nodiscard]] std::shared_ptr<ff_wrap::Packet> fill(Medium medium, const flv::Packet& packet,
                                                        std::int32_t compositionMs,
                                                        std::vector<std::uint8_t>& sideData, int keyFlag);
    [[nodiscard]] std::int64_t decodeTime(Medium medium, std::uint32_t timestampMs);

    const flv::Dialect& dialect_;
    flv::WrappingTime wrappingTime_;
    flv::ContinuousTime continuousTime_;
    MetaInfo metaInfo_; ///< by packets: what the metadata have said so far
    VideoIntake videoIntake_;
    AudioIntake audioIntake_;
    bool firstVideoPending_ = true; ///< by metadata
    bool firstAudioPending_ = true; ///< by metadata
    bool saidAbsurd_ = false;
    std::vector<std::uint8_t> pendingVideoSideData_;
    std::vector<std::uint8_t> pendingAudioSideData_;
    ff_wrap::LazyCodecParameters audioParams_{AVMEDIA_TYPE_AUDIO};
    ff_wrap::LazyCodecParameters videoParams_{AVMEDIA_TYPE_VIDEO};
};

} // namespace ko_player
