#include "flv/ScriptData.h"

#include "base/BigEndian.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string_view>

namespace ko_player::flv {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::string_view kMessageName = "onMetaData";
constexpr std::array<std::uint8_t, 3> kObjectEnd{0, 0, 9};

/// AMF0 type markers.
enum Amf : std::uint8_t {
    kNumber = 0,
    kBoolean = 1,
    kString = 2,
    kMovieClip = 4,
    kNull = 5,
    kUndefined = 6,
    kReference = 7,
    kEcmaArray = 8,
    kDate = 11,
    kLongString = 12,
};

bool startsWithObjectEnd(Bytes bytes) {
    return bytes.size() >= kObjectEnd.size() &&
           std::equal(kObjectEnd.begin(), kObjectEnd.end(), bytes.begin());
}

std::string_view text(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// How many bytes a value takes behind its type marker; nothing for a type that is not read or a length that
/// is cut off.
std::optional<std::size_t> valueSize(std::uint8_t type, Bytes bytes) {
    switch (type) {
    case kNumber:
        return 8;
    case kBoolean:
        return 1;
    case kString:
    case kMovieClip:
        if (bytes.size() < 2) {
            return std::nullopt;
        }
        return std::size_t{2} + base::readU16(bytes.data());
    case kNull:
    case kUndefined:
        return 0;
    case kReference:
        return 2;
    case kDate:
        return 10;
    case kLongString:
        if (bytes.size() < 4) {
            return std::nullopt;
        }
        return std::size_t{4} + base::readU32(bytes.data());
    default:
        return std::nullopt;
    }
}

/// Reads an array from behind its marker and moves `bytes` past it. Nothing where it is malformed.
std::optional<NumberProperties> readEcmaArray(Bytes& bytes) {
    constexpr std::size_t kCountSize = 4;
    if (bytes.size() < kCountSize) {
        return std::nullopt;
    }
    bytes = bytes.subspan(kCountSize); // the element count says nothing that the end marker does not
    NumberProperties properties;
    while (bytes.size() >= kObjectEnd.size()) {
        if (startsWithObjectEnd(bytes)) {
            bytes = bytes.subspan(kObjectEnd.size());
            break;
        }
        const std::size_t keySize = base::readU16(bytes.data());
        if (bytes.size() < keySize + 3) { // length UI16, key, type marker
            return std::nullopt;
        }
        const Bytes key = bytes.subspan(2, keySize);
        const std::uint8_t type = bytes[2 + keySize];
        bytes = bytes.subspan(keySize + 3);
        const auto size = valueSize(type, bytes);
        if (!size || *size > bytes.size()) {
            return std::nullopt;
        }
        if (type == kNumber) {
            properties.emplace_back(text(key), std::round(base::readDouble(bytes.data())));
        }
        bytes = bytes.subspan(*size);
    }
    return properties;
}

} // namespace

ScriptData readScriptData(std::span<const std::uint8_t> body) {
    ScriptData result;
    while (body.size() >= kObjectEnd.size() && !startsWithObjectEnd(body)) {
        if (body[0] != kString) {
            return result;
        }
        const std::size_t nameSize = base::readU16(body.data() + 1);
        if (body.size() - 1 < nameSize + 3) { // length UI16, name, marker of what follows
            return result;
        }
        if (text(body.subspan(3, nameSize)) != kMessageName || body[3 + nameSize] != kEcmaArray) {
            return result;
        }
        body = body.subspan(nameSize + 4);
        auto properties = readEcmaArray(body);
        if (!properties) {
            return result;
        }
        if (!properties->empty()) {
            result.messages.push_back(std::move(*properties));
        }
    }
    result.complete = true;
    return result;
}

} // namespace ko_player::flv
