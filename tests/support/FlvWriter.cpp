#include "support/FlvWriter.h"

#include <algorithm>
#include <bit>

namespace mediaworker::test {
namespace {

constexpr std::size_t kFileHeaderSize = 9;
constexpr std::size_t kTagHeaderSize = 11;

using Bytes = std::vector<std::uint8_t>;

/// Big-endian, `count` bytes.
void append(Bytes& out, std::uint64_t value, unsigned count) {
    for (unsigned i = count; i-- > 0;) {
        out.push_back(static_cast<std::uint8_t>(value >> (8U * i)));
    }
}

void append(Bytes& out, std::span<const std::uint8_t> bytes) {
    // Resized first: GCC 12 takes the insertion of a range into a short vector for an overflow.
    const std::size_t before = out.size();
    out.resize(before + bytes.size());
    std::copy(bytes.begin(), bytes.end(), out.data() + before);
}

void append(Bytes& out, std::string_view text) {
    append(out, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

Bytes typed(std::uint8_t type, std::string_view text, unsigned lengthBytes) {
    Bytes bytes{type};
    append(bytes, text.size(), lengthBytes);
    append(bytes, text);
    return bytes;
}

void appendProperties(Bytes& out, const AmfValue::Properties& properties) {
    for (const auto& [name, value] : properties) {
        append(out, name.size(), 2);
        append(out, name);
        append(out, value.bytes());
    }
    append(out, 9, 3); // object end
}

} // namespace

AmfValue::AmfValue(double number) : bytes_{0} {
    append(bytes_, std::bit_cast<std::uint64_t>(number), 8);
}
AmfValue::AmfValue(int number) : AmfValue(static_cast<double>(number)) {}
AmfValue::AmfValue(bool boolean) : bytes_{1, static_cast<std::uint8_t>(boolean ? 1 : 0)} {}
AmfValue::AmfValue(const char* text) : bytes_(typed(2, text, 2)) {}
AmfValue::AmfValue(const std::string& text) : bytes_(typed(2, text, 2)) {}

AmfValue AmfValue::object(const Properties& properties) {
    Bytes bytes{3};
    appendProperties(bytes, properties);
    return AmfValue(std::move(bytes));
}

AmfValue AmfValue::movieClip(std::string_view text) {
    return AmfValue(typed(4, text, 2));
}

AmfValue AmfValue::null() {
    return raw(5);
}

AmfValue AmfValue::undefined() {
    return raw(6);
}

AmfValue AmfValue::reference(std::uint16_t index) {
    Bytes bytes{7};
    append(bytes, index, 2);
    return AmfValue(std::move(bytes));
}

AmfValue AmfValue::ecmaArray(const Properties& properties) {
    Bytes bytes{8};
    append(bytes, properties.size(), 4);
    appendProperties(bytes, properties);
    return AmfValue(std::move(bytes));
}

AmfValue AmfValue::objectEnd() {
    return raw(9);
}

AmfValue AmfValue::strictArray(const std::vector<AmfValue>& elements) {
    Bytes bytes{10};
    append(bytes, elements.size(), 4);
    for (const AmfValue& element : elements) {
        append(bytes, element.bytes());
    }
    return AmfValue(std::move(bytes));
}

AmfValue AmfValue::date(double millisecondsSince1970, std::int16_t timeZone) {
    Bytes bytes{11};
    append(bytes, std::bit_cast<std::uint64_t>(millisecondsSince1970), 8);
    append(bytes, static_cast<std::uint16_t>(timeZone), 2);
    return AmfValue(std::move(bytes));
}

AmfValue AmfValue::longString(std::string_view text) {
    return AmfValue(typed(12, text, 4));
}

AmfValue AmfValue::raw(std::uint8_t type, std::span<const std::uint8_t> payload) {
    Bytes bytes{type};
    append(bytes, payload);
    return AmfValue(std::move(bytes));
}

std::string fourCcOf(VideoCodec codec) {
    switch (codec) {
    case VideoCodec::Avc:
        return "avc1";
    case VideoCodec::Hevc:
        return "hvc1";
    case VideoCodec::Av1:
        return "av01";
    case VideoCodec::Vp8:
        return "vp08";
    case VideoCodec::Vp9:
        return "vp09";
    }
    return {};
}

std::vector<std::uint8_t> scriptBody(std::string_view name, const AmfValue::Properties& properties) {
    Bytes body = typed(2, name, 2);
    append(body, AmfValue::ecmaArray(properties).bytes());
    return body;
}

FlvWriter& FlvWriter::header(std::uint8_t flags, std::uint32_t dataOffset, std::uint8_t version) {
    append(bytes_, std::string_view("FLV"));
    bytes_.push_back(version);
    bytes_.push_back(flags);
    append(bytes_, dataOffset, 4);
    if (dataOffset > kFileHeaderSize) {
        bytes_.insert(bytes_.end(), dataOffset - kFileHeaderSize, 0);
    }
    return backPointer(0);
}

FlvWriter& FlvWriter::tag(std::uint8_t type, std::uint32_t timestampMs, std::span<const std::uint8_t> body,
                          std::uint32_t streamId) {
    tagHeader(type, static_cast<std::uint32_t>(body.size()), timestampMs, streamId);
    append(bytes_, body);
    return backPointer(static_cast<std::uint32_t>(body.size() + kTagHeaderSize));
}

FlvWriter& FlvWriter::video(std::uint32_t timestampMs, VideoCodec codec, bool keyFrame,
                            std::uint8_t avcPacketType, std::span<const std::uint8_t> payload,
                            std::int32_t compositionTimeMs) {
    const unsigned frameType = keyFrame ? 1 : 2;
    Bytes body{static_cast<std::uint8_t>(frameType << 4U | static_cast<unsigned>(codec)), avcPacketType};
    append(body, static_cast<std::uint32_t>(compositionTimeMs), 3);
    append(body, payload);
    return tag(kVideoTag, timestampMs, body);
}

FlvWriter& FlvWriter::audio(std::uint32_t timestampMs, std::uint8_t headerByte,
                            std::span<const std::uint8_t> payload) {
    Bytes body{headerByte};
    append(body, payload);
    return tag(kAudioTag, timestampMs, body);
}

FlvWriter& FlvWriter::aac(std::uint32_t timestampMs, std::uint8_t aacPacketType,
                          std::span<const std::uint8_t> payload, std::uint8_t headerByte) {
    Bytes body{headerByte, aacPacketType};
    append(body, payload);
    return tag(kAudioTag, timestampMs, body);
}

FlvWriter& FlvWriter::enhancedVideo(std::uint32_t timestampMs, std::string_view fourCc, bool keyFrame,
                                    std::uint8_t packetType, std::span<const std::uint8_t> payload,
                                    std::int32_t compositionTimeMs) {
    const unsigned frameType = keyFrame ? 1 : 2;
    Bytes body{static_cast<std::uint8_t>(0x80U | frameType << 4U | packetType)};
    append(body, fourCc);
    if (packetType == kFrames && (fourCc == "avc1" || fourCc == "hvc1")) {
        append(body, static_cast<std::uint32_t>(compositionTimeMs), 3);
    }
    append(body, payload);
    return tag(kVideoTag, timestampMs, body);
}

FlvWriter& FlvWriter::enhancedAudio(std::uint32_t timestampMs, std::string_view fourCc,
                                    std::uint8_t packetType, std::span<const std::uint8_t> payload) {
    Bytes body{static_cast<std::uint8_t>(0x90U | packetType)};
    append(body, fourCc);
    append(body, payload);
    return tag(kAudioTag, timestampMs, body);
}

FlvWriter& FlvWriter::metadata(std::uint32_t timestampMs, const AmfValue::Properties& properties) {
    return tag(kScriptTag, timestampMs, scriptBody("onMetaData", properties));
}

FlvWriter& FlvWriter::tagHeader(std::uint8_t type, std::uint32_t dataSize, std::uint32_t timestampMs,
                                std::uint32_t streamId) {
    bytes_.push_back(type);
    append(bytes_, dataSize, 3);
    append(bytes_, timestampMs & 0xFFFFFFU, 3); // Timestamp
    append(bytes_, timestampMs >> 24U, 1);      // TimestampExtended
    append(bytes_, streamId, 3);
    return *this;
}

FlvWriter& FlvWriter::backPointer(std::uint32_t value) {
    append(bytes_, value, 4);
    return *this;
}

FlvWriter& FlvWriter::raw(std::span<const std::uint8_t> bytes) {
    append(bytes_, bytes);
    return *this;
}

std::vector<std::uint8_t> lengthPrefixed(const std::vector<std::vector<std::uint8_t>>& nalUnits) {
    Bytes payload;
    for (const Bytes& nalUnit : nalUnits) {
        append(payload, nalUnit.size(), 4);
        append(payload, nalUnit);
    }
    return payload;
}

} // namespace mediaworker::test
