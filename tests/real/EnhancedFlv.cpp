#include "EnhancedFlv.h"

#include "FlvTags.h"
#include "MediaFile.h"
#include "support/FlvWriter.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace mediaworker::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

// VideoPacketType and AudioPacketType
constexpr unsigned kSequenceStart = 0;
constexpr unsigned kCodedFrames = 1;
constexpr unsigned kSequenceEnd = 2;
constexpr unsigned kCodedFramesX = 3;
constexpr unsigned kMetadata = 4;
constexpr unsigned kAudioMultitrack = 5;
constexpr unsigned kVideoMultitrack = 6;
constexpr unsigned kModEx = 7;

// AvMultitrackType
constexpr unsigned kOneTrack = 0;
constexpr unsigned kManyTracks = 1;

constexpr std::array<std::uint8_t, 2> kTracks = {0, 1}; // of a multitrack stream

constexpr unsigned kKeyFrame = 1;   // VideoFrameType
constexpr unsigned kInterFrame = 2; // VideoFrameType
constexpr unsigned kExHeader = 9;   // SoundFormat

const std::map<std::string, std::string> kFourCcs = {
    {"h264", "avc1"}, {"hevc", "hvc1"}, {"av1", "av01"},  {"vp9", "vp09"}, {"vp8", "vp08"}, {"aac", "mp4a"},
    {"opus", "Opus"}, {"mp3", ".mp3"},  {"flac", "fLaC"}, {"ac3", "ac-3"}, {"eac3", "ec-3"}};

const std::string& fourCcOf(const MediaTrack& track) {
    const auto found = kFourCcs.find(track.codec);
    if (found == kFourCcs.end()) {
        throw std::runtime_error("Enhanced FLV has no FourCC for " + track.codec);
    }
    return found->second;
}

void append(Bytes& out, const Bytes& bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

void append(Bytes& out, const std::string& text) {
    out.insert(out.end(), text.begin(), text.end());
}

void appendNumber(Bytes& out, std::size_t value, unsigned bytes) {
    for (unsigned i = bytes; i-- > 0;) {
        out.push_back(static_cast<std::uint8_t>(value >> (8U * i)));
    }
}

double asNumber(const std::string& fourCc) {
    double value = 0;
    for (const char c : fourCc) {
        value = value * 256 + static_cast<unsigned char>(c);
    }
    return value;
}

/// What the document puts behind SequenceStart; nothing where a codec has no configuration.
std::optional<Bytes> configurationOf(const MediaTrack& track) {
    if (track.codec == "vp8" || track.codec == "vp9") {
        // VPCodecConfigurationRecord: version, flags UI24; profile, level; bit depth 8, chroma 4:2:0, limited
        // range; colours unspecified; no codec initialisation data
        return Bytes{1, 0, 0, 0, static_cast<std::uint8_t>(track.profile), 10, 0x82, 2, 2, 2, 0, 0};
    }
    if (track.codec == "flac") {
        Bytes header;
        append(header, "fLaC");
        append(header, Bytes{0x80, 0, 0, 34}); // the last metadata block: STREAMINFO of 34 bytes
        append(header, track.configuration);
        return header;
    }
    if (track.configuration.empty() || track.codec == "mp3" || track.codec == "ac3" ||
        track.codec == "eac3") {
        return std::nullopt;
    }
    return track.configuration;
}

/// The tags of one file.
class EnhancedTags {
public:
    EnhancedTags(MediaFile media, const EnhancedOptions& options)
        : media_(std::move(media)), options_(options) {
        for (const MediaPacket& packet : media_.packets) {
            shiftMs_ = std::max(shiftMs_, -packet.dtsMs);
        }
    }

    [[nodiscard]] std::int64_t shiftMs() const { return shiftMs_; }

    std::vector<FlvTag> make() {
        script();
        start();
        for (const MediaPacket& packet : media_.packets) {
            packet.isVideo ? picture(packet) : sound(packet);
        }
        if (options_.extras) {
            const auto end = tags_.back().timestampMs;
            video(end, kInterFrame, kSequenceEnd, {});
            audio(end, kSequenceEnd, {});
        }
        return std::move(tags_);
    }

private:
    void script() {
        AmfValue::Properties properties = {
            {"width", media_.video.widthPx},
            {"height", media_.video.heightPx},
            {"videocodecid", options_.oldVideo ? 12 : asNumber(fourCcOf(media_.video))}};
        if (media_.audio.exists()) {
            properties.emplace_back("audiocodecid",
                                    options_.oldSound ? 10 : asNumber(fourCcOf(media_.audio)));
            properties.emplace_back("audiosamplerate", media_.audio.sampleRate);
            properties.emplace_back("stereo", media_.audio.channels == 2);
        }
        tags_.push_back({FlvWriter::kScriptTag, 0, scriptBody("onMetaData", properties)});
    }

    void start() {
        if (options_.extras) {
            Bytes colours = AmfValue("colorInfo").bytes();
            append(colours, AmfValue::object(
                                {{"colorConfig", AmfValue::object({{"bitDepth", 8}, {"colorPrimaries", 1}})}})
                                .bytes());
            video(0, kKeyFrame, kMetadata, colours);
        }
        if (const auto configuration = configurationOf(media_.video)) {
            video(0, kKeyFrame, kSequenceStart, *configuration);
        }
        if (media_.audio.exists()) {
            if (const auto configuration = configurationOf(media_.audio)) {
                audio(0, kSequenceStart, *configuration);
            }
        }
    }

    void picture(const MediaPacket& packet) {
        const std::int64_t compositionMs = packet.ptsMs - packet.dtsMs;
        const bool hasComposition = media_.video.codec == "h264" || media_.video.codec == "hevc";
        Bytes payload;
        unsigned type = kCodedFrames;
        if (hasComposition && compositionMs == 0) {
            type = kCodedFramesX;
        } else if (hasComposition) {
            appendNumber(payload, static_cast<std::size_t>(compositionMs), 3); // compositionTimeOffset SI24
        }
        append(payload, packet.bytes);
        video(stamp(packet), packet.isKey ? kKeyFrame : kInterFrame, type, payload);
    }

    void sound(const MediaPacket& packet) { audio(stamp(packet), kCodedFrames, packet.bytes); }

    [[nodiscard]] std::uint32_t stamp(const MediaPacket& packet) const {
        return static_cast<std::uint32_t>(packet.dtsMs + shiftMs_);
    }

    /// The packet type, behind what modifies it.
    void begin(Bytes& body, unsigned highBits, unsigned type) const {
        if (options_.modEx) {
            body.push_back(static_cast<std::uint8_t>(highBits | kModEx));
            append(body, Bytes{2, 0, 1, 0}); // modExDataSize - 1, TimestampOffsetNano UI24
            highBits = 0;                    // the type of the ModEx data: TimestampOffsetNano
        }
        body.push_back(static_cast<std::uint8_t>(highBits | type));
    }

    void video(std::uint32_t timestampMs, unsigned frameType, unsigned type, const Bytes& payload) {
        Bytes body;
        if (options_.oldVideo) {
            oldVideo(body, frameType, type, payload);
        } else if (options_.multitrack) {
            begin(body, 0x80U | frameType << 4U, kVideoMultitrack);
            body.push_back(static_cast<std::uint8_t>(kManyTracks << 4U | type));
            append(body, fourCcOf(media_.video));
            for (const std::uint8_t track : kTracks) {
                body.push_back(track);
                appendNumber(body, payload.size(), 3);
                append(body, payload);
            }
        } else {
            begin(body, 0x80U | frameType << 4U, type);
            append(body, fourCcOf(media_.video));
            append(body, payload);
        }
        tags_.push_back({FlvWriter::kVideoTag, timestampMs, std::move(body)});
    }

    /// CodecID 12, AVCPacketType, CompositionTime.
    static void oldVideo(Bytes& body, unsigned frameType, unsigned type, const Bytes& payload) {
        body.push_back(static_cast<std::uint8_t>(frameType << 4U | 12U));
        body.push_back(static_cast<std::uint8_t>(type == kCodedFramesX ? kCodedFrames : type));
        if (type != kCodedFrames) { // the payload brings no time of its own
            appendNumber(body, 0, 3);
        }
        append(body, payload);
    }

    void audio(std::uint32_t timestampMs, unsigned type, const Bytes& payload) {
        if (options_.oldSound) {
            if (type != kSequenceEnd) {
                Bytes body{0xAF, static_cast<std::uint8_t>(type)}; // AAC; the types have the same numbers
                append(body, payload);
                tags_.push_back({FlvWriter::kAudioTag, timestampMs, std::move(body)});
            }
            return;
        }
        for (const std::uint8_t track : kTracks) {
            Bytes body;
            if (options_.multitrack) {
                begin(body, kExHeader << 4U, kAudioMultitrack);
                body.push_back(static_cast<std::uint8_t>(kOneTrack << 4U | type));
                append(body, fourCcOf(media_.audio));
                body.push_back(track);
            } else {
                begin(body, kExHeader << 4U, type);
                append(body, fourCcOf(media_.audio));
            }
            append(body, payload);
            tags_.push_back({FlvWriter::kAudioTag, timestampMs, std::move(body)});
            if (!options_.multitrack) {
                return;
            }
        }
    }

    const MediaFile media_;
    const EnhancedOptions options_;
    std::int64_t shiftMs_ = 0;
    std::vector<FlvTag> tags_;
};

} // namespace

std::chrono::milliseconds writeEnhancedFlv(const std::filesystem::path& from, const std::filesystem::path& to,
                                           const EnhancedOptions& options) {
    EnhancedTags tags(readMediaFile(from), options);
    writeTags(to, tags.make());
    return std::chrono::milliseconds(tags.shiftMs());
}

} // namespace mediaworker::test
