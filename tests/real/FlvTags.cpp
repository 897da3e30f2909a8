#include "FlvTags.h"

#include "support/ChildProcess.h"
#include "support/FlvWriter.h"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>

namespace mediaworker::test {
namespace {

constexpr std::size_t kFileHeaderBytes = 9 + 4; // with the first back-pointer
constexpr std::size_t kTagHeaderBytes = 11;
constexpr std::size_t kBackPointerBytes = 4;

constexpr std::uint8_t kAvc = 7;
constexpr std::uint8_t kHevc = 12;
constexpr std::uint8_t kAac = 10;

std::uint32_t bigEndian(const std::string& bytes, std::size_t offset, std::size_t count) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value = value << 8U | static_cast<std::uint8_t>(bytes.at(offset + i));
    }
    return value;
}

} // namespace

bool FlvTag::isVideo() const {
    return type == FlvWriter::kVideoTag;
}

bool FlvTag::isAudio() const {
    return type == FlvWriter::kAudioTag;
}

bool FlvTag::isScript() const {
    return type == FlvWriter::kScriptTag;
}

bool FlvTag::isConfiguration() const {
    if (body.size() < 2 || body[1] != FlvWriter::kSequenceHeader) {
        return false;
    }
    const auto codecId = static_cast<std::uint8_t>(body[0] & 0x0FU);
    const auto soundFormat = static_cast<std::uint8_t>(body[0] >> 4U);
    return (isVideo() && (codecId == kAvc || codecId == kHevc)) || (isAudio() && soundFormat == kAac);
}

bool FlvTag::isKeyFrame() const {
    return isVideo() && !isConfiguration() && !body.empty() && body[0] >> 4U == 1;
}

std::vector<FlvTag> readTags(const std::filesystem::path& file) {
    const std::string bytes = readFile(file);
    if (!bytes.starts_with("FLV")) {
        throw std::runtime_error(file.string() + " is no FLV file");
    }
    std::vector<FlvTag> tags;
    for (std::size_t at = kFileHeaderBytes; at < bytes.size();) {
        FlvTag tag;
        tag.type = static_cast<std::uint8_t>(bigEndian(bytes, at, 1)); // TagType UB[5]
        const std::size_t size = bigEndian(bytes, at + 1, 3);          // DataSize UI24
        tag.timestampMs = bigEndian(bytes, at + 4, 3)                  // Timestamp UI24
                          | bigEndian(bytes, at + 7, 1) << 24U;        // TimestampExtended UI8
        at += kTagHeaderBytes;
        if (bytes.size() - at < size + kBackPointerBytes) {
            throw std::runtime_error(file.string() + " ends in the middle of a tag");
        }
        const auto* begin = reinterpret_cast<const std::uint8_t*>(bytes.data()) + at;
        tag.body.assign(begin, begin + size);
        tags.push_back(std::move(tag));
        at += size + kBackPointerBytes;
    }
    return tags;
}

void writeTags(const std::filesystem::path& file, const std::vector<FlvTag>& tags) {
    const bool hasVideo = std::any_of(tags.begin(), tags.end(), std::mem_fn(&FlvTag::isVideo));
    const bool hasAudio = std::any_of(tags.begin(), tags.end(), std::mem_fn(&FlvTag::isAudio));
    FlvWriter writer;
    writer.header(static_cast<std::uint8_t>((hasVideo ? 1U : 0U) | (hasAudio ? 4U : 0U)));
    for (const FlvTag& tag : tags) {
        writer.tag(tag.type, tag.timestampMs, tag.body);
    }
    const auto bytes = writer.take();
    writeFile(file, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

std::span<const std::uint8_t> metadataValue(const FlvTag& tag) {
    // SCRIPTDATASTRING: type 2, length UI16, name
    constexpr std::string_view kName("\x02\x00\x0aonMetaData", 13);
    const std::string_view body(reinterpret_cast<const char*>(tag.body.data()), tag.body.size());
    if (!tag.isScript() || !body.starts_with(kName)) {
        throw std::runtime_error("this tag is no onMetaData message");
    }
    return std::span(tag.body).subspan(kName.size());
}

} // namespace mediaworker::test
