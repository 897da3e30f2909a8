#include "flv/ScriptData.h"

#include "base/BigEndian.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string_view>
#include <utility>

namespace ko_player::flv {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::string_view kMessageName = "onMetaData";
constexpr std::string_view kVideoCodecKey = "videocodecid";
constexpr std::string_view kAudioCodecKey = "audiocodecid";
constexpr std::array<std::uint8_t, 3> kObjectEnd{0, 0, 9};

/// AMF0 type markers.
enum Amf : std::uint8_t {
    kNumber = 0,
    kBoolean = 1,
    kString = 2,
    kObject = 3,
    kMovieClip = 4,
    kNull = 5,
    kUndefined = 6,
    kReference = 7,
    kEcmaArray = 8,
    kStrictArray = 10,
    kDate = 11,
    kLongString = 12,
    kUnsupported = 13,
    kXmlDocument = 15,
    kTypedObject = 16,
};

constexpr std::size_t kCountSize = 4; ///< of an ECMA array's or a strict array's element count
/// Values nested deeper than this are taken as broken.
constexpr int kDeepestValue = 16;

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

/// Steps over a value of any type from behind its marker. False where it is broken or too deep.
bool skipValue(std::uint8_t type, Bytes& bytes, int depth);

bool skipBytes(Bytes& bytes, std::size_t count) {
    if (count > bytes.size()) {
        return false;
    }
    bytes = bytes.subspan(count);
    return true;
}

/// Steps over a key, and returns it with the marker behind it; nothing where it is cut off.
std::optional<std::pair<Bytes, std::uint8_t>> takeKey(Bytes& bytes) {
    const std::size_t keySize = base::readU16(bytes.data());
    if (bytes.size() < keySize + 3) { // length UI16, key, type marker
        return std::nullopt;
    }
    const std::pair key(bytes.subspan(2, keySize), bytes[2 + keySize]);
    bytes = bytes.subspan(keySize + 3);
    return key;
}

bool skipProperties(Bytes& bytes, int depth) {
    while (bytes.size() >= kObjectEnd.size() && !startsWithObjectEnd(bytes)) {
        const auto key = takeKey(bytes);
        if (!key || !skipValue(key->second, bytes, depth)) {
            return false;
        }
    }
    return skipBytes(bytes, kObjectEnd.size());
}

bool skipElements(Bytes& bytes, int depth) {
    if (bytes.size() < kCountSize) {
        return false;
    }
    std::uint32_t count = base::readU32(bytes.data());
    bytes = bytes.subspan(kCountSize);
    for (; count > 0 && !bytes.empty(); --count) { // each takes one byte at least
        const std::uint8_t type = bytes.front();
        bytes = bytes.subspan(1);
        if (!skipValue(type, bytes, depth)) {
            return false;
        }
    }
    return count == 0;
}

bool skipValue(std::uint8_t type, Bytes& bytes, int depth) {
    if (depth > kDeepestValue) {
        return false;
    }
    switch (type) {
    case kObject:
        return skipProperties(bytes, depth + 1);
    case kEcmaArray:
        return skipBytes(bytes, kCountSize) && skipProperties(bytes, depth + 1);
    case kTypedObject: { // its class name, then as an object
        const auto name = valueSize(kString, bytes);
        return name && skipBytes(bytes, *name) && skipProperties(bytes, depth + 1);
    }
    case kStrictArray:
        return skipElements(bytes, depth + 1);
    case kUnsupported:
        return true;
    case kXmlDocument: {
        const auto size = valueSize(kLongString, bytes);
        return size && skipBytes(bytes, *size);
    }
    default: {
        const auto size = valueSize(type, bytes);
        return size && skipBytes(bytes, *size);
    }
    }
}

/// The number that a property's value stands for. A codec's name is its FourCC.
std::optional<double> numberOf(std::string_view key, std::uint8_t type, Bytes bytes,
                               const ScriptRules& rules) {
    constexpr std::size_t kFourCcEnd = 6; // length UI16, four characters
    if (type == kNumber) {
        return std::round(base::readDouble(bytes.data()));
    }
    if (rules.onlyPlainArrays) {
        return std::nullopt;
    }
    if (type == kBoolean) {
        return bytes[0] != 0 ? 1 : 0;
    }
    if (type == kString && bytes.size() == kFourCcEnd && (key == kVideoCodecKey || key == kAudioCodecKey)) {
        return base::readU32(bytes.data() + 2);
    }
    return std::nullopt;
}

/// The properties of an array or object, and whether reading can go on behind it.
struct Properties {
    NumberProperties numbers;
    bool isBroken = false;
};

/// Reads from the first key on and moves `bytes` past the end.
Properties readProperties(Bytes& bytes, const ScriptRules& rules) {
    Properties result;
    while (bytes.size() >= kObjectEnd.size()) {
        if (startsWithObjectEnd(bytes)) {
            bytes = bytes.subspan(kObjectEnd.size());
            return result;
        }
        const auto key = takeKey(bytes);
        if (!key) {
            result.isBroken = true;
            return result;
        }
        const std::uint8_t type = key->second;
        const auto size = valueSize(type, bytes);
        if (size && *size <= bytes.size()) {
            const std::string_view name = text(key->first);
            if (const auto number = numberOf(name, type, bytes.first(*size), rules)) {
                result.numbers.emplace_back(name, *number);
            }
            bytes = bytes.subspan(*size);
        } else if (rules.onlyPlainArrays || size || !skipValue(type, bytes, 1)) {
            result.isBroken = true;
            return result;
        }
    }
    return result;
}

void keep(ScriptData& result, Properties properties) {
    if (!properties.numbers.empty()) {
        result.messages.push_back(std::move(properties.numbers));
    }
}

/// One message after the other, each the name and an ECMA array; all of it must be as expected.
ScriptData readPlainMessages(Bytes body, const ScriptRules& rules) {
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
        if (body.size() < kCountSize) {
            return result;
        }
        body = body.subspan(kCountSize); // says nothing that the end marker does not
        Properties properties = readProperties(body, rules);
        if (properties.isBroken) {
            return result;
        }
        keep(result, std::move(properties));
    }
    result.complete = true;
    return result;
}

/// Any values one after the other; what follows the name is read, the rest is stepped over. So nobody minds
/// the command of a publisher that stands before the name in recorded streams.
ScriptData readAnyMessages(Bytes body, const ScriptRules& rules) {
    ScriptData result;
    bool isNamed = false;
    while (!body.empty()) {
        if (startsWithObjectEnd(body)) {
            break;
        }
        const std::uint8_t type = body.front();
        body = body.subspan(1);
        const auto size = valueSize(type, body);
        if (isNamed && (type == kObject || (type == kEcmaArray && skipBytes(body, kCountSize)))) {
            Properties properties = readProperties(body, rules);
            const bool isBroken = properties.isBroken;
            keep(result, std::move(properties));
            if (isBroken) {
                return result;
            }
            isNamed = false;
            continue;
        }
        isNamed = type == kString && size && *size <= body.size() &&
                  text(body.subspan(2, *size - 2)) == kMessageName;
        if (!skipValue(type, body, 1)) {
            return result;
        }
    }
    result.complete = true;
    return result;
}

} // namespace

ScriptData readScriptData(std::span<const std::uint8_t> body, const ScriptRules& rules) {
    return rules.onlyPlainArrays ? readPlainMessages(body, rules) : readAnyMessages(body, rules);
}

} // namespace ko_player::flv
