#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace mediaworker::test {

/// One AMF0 value, held in its encoded form: the type byte and what follows it.
class AmfValue {
public:
    using Properties = std::vector<std::pair<std::string, AmfValue>>;

    AmfValue(double number);           // NOLINT(google-explicit-constructor): reads well in property lists
    AmfValue(int number);              // NOLINT(google-explicit-constructor)
    AmfValue(bool boolean);            // NOLINT(google-explicit-constructor)
    AmfValue(const char* text);        // NOLINT(google-explicit-constructor)
    AmfValue(const std::string& text); // NOLINT(google-explicit-constructor)

    static AmfValue object(const Properties& properties);
    static AmfValue movieClip(std::string_view text);
    static AmfValue null();
    static AmfValue undefined();
    static AmfValue reference(std::uint16_t index);
    static AmfValue ecmaArray(const Properties& properties);
    static AmfValue objectEnd();
    static AmfValue strictArray(const std::vector<AmfValue>& elements);
    static AmfValue date(double millisecondsSince1970, std::int16_t timeZone = 0);
    static AmfValue longString(std::string_view text);
    /// Any type byte with any bytes behind it.
    static AmfValue raw(std::uint8_t type, std::span<const std::uint8_t> payload = {});

    [[nodiscard]] const std::vector<std::uint8_t>& bytes() const { return bytes_; }

private:
    explicit AmfValue(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}

    std::vector<std::uint8_t> bytes_;
};

/// The body of a script-data tag: the name as a string, the properties as an ECMA array.
[[nodiscard]] std::vector<std::uint8_t> scriptBody(std::string_view name,
                                                   const AmfValue::Properties& properties);

/// The CodecID of FLV video tags; the last two have none, only a FourCC.
enum class VideoCodec : std::uint8_t { Avc = 7, Hevc = 12, Av1 = 13, Vp8 = 0xF8, Vp9 = 0xF9 };

/// What enhanced tags name the codec.
[[nodiscard]] std::string fourCcOf(VideoCodec codec);

/// Composes an FLV stream in memory: right by default, wrong where a test asks for it. Every tag is followed
/// at once by its back-pointer, so the bytes can be handed out piece by piece while a live stream goes on.
class FlvWriter {
public:
    static constexpr std::uint8_t kAudioTag = 8;
    static constexpr std::uint8_t kVideoTag = 9;
    static constexpr std::uint8_t kScriptTag = 18;
    static constexpr std::uint8_t kSequenceHeader = 0; ///< AVCPacketType and AACPacketType
    static constexpr std::uint8_t kFrames = 1;         ///< AVCPacketType (NAL units) and AACPacketType (raw)
    static constexpr std::uint8_t kEndOfSequence = 2;  ///< AVCPacketType
    static constexpr std::uint8_t kFramesX = 3; ///< VideoPacketType of enhanced tags: no composition time

    /// The file header, zeros up to `dataOffset`, and the back-pointer 0.
    FlvWriter& header(std::uint8_t flags = 0x05, std::uint32_t dataOffset = 9, std::uint8_t version = 1);

    /// A whole tag and its back-pointer.
    FlvWriter& tag(std::uint8_t type, std::uint32_t timestampMs, std::span<const std::uint8_t> body,
                   std::uint32_t streamId = 0);

    /// A video tag. `payload` is the decoder configuration record or NAL units with 4-byte lengths.
    FlvWriter& video(std::uint32_t timestampMs, VideoCodec codec, bool keyFrame, std::uint8_t avcPacketType,
                     std::span<const std::uint8_t> payload, std::int32_t compositionTimeMs = 0);

    /// An audio tag of any format but AAC: the header byte, then the payload.
    FlvWriter& audio(std::uint32_t timestampMs, std::uint8_t headerByte,
                     std::span<const std::uint8_t> payload);

    FlvWriter& aac(std::uint32_t timestampMs, std::uint8_t aacPacketType,
                   std::span<const std::uint8_t> payload, std::uint8_t headerByte = 0xAF);

    /// Enhanced tags of one track. A composition time is written for those packet types that have one.
    FlvWriter& enhancedVideo(std::uint32_t timestampMs, std::string_view fourCc, bool keyFrame,
                             std::uint8_t packetType, std::span<const std::uint8_t> payload,
                             std::int32_t compositionTimeMs = 0);
    FlvWriter& enhancedAudio(std::uint32_t timestampMs, std::string_view fourCc, std::uint8_t packetType,
                             std::span<const std::uint8_t> payload);

    /// An onMetaData script tag.
    FlvWriter& metadata(std::uint32_t timestampMs, const AmfValue::Properties& properties);

    /// Pieces for broken streams: a tag header that may lie about its size, a lone back-pointer, any bytes.
    FlvWriter& tagHeader(std::uint8_t type, std::uint32_t dataSize, std::uint32_t timestampMs,
                         std::uint32_t streamId = 0);
    FlvWriter& backPointer(std::uint32_t value);
    FlvWriter& raw(std::span<const std::uint8_t> bytes);

    /// The bytes written since the last take().
    [[nodiscard]] std::vector<std::uint8_t> take() { return std::exchange(bytes_, {}); }
    [[nodiscard]] const std::vector<std::uint8_t>& bytes() const { return bytes_; }

private:
    std::vector<std::uint8_t> bytes_;
};

/// NAL units, each behind its 4-byte length, as a video tag of packet type 1 carries them.
[[nodiscard]] std::vector<std::uint8_t>
lengthPrefixed(const std::vector<std::vector<std::uint8_t>>& nalUnits);

} // namespace mediaworker::test
