#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>
#include <vector>

namespace mediaworker::test {

/// A tag of an FLV file, as it stands there.
struct FlvTag {
    std::uint8_t type = 0;
    std::uint32_t timestampMs = 0;
    std::vector<std::uint8_t> body;

    [[nodiscard]] bool isVideo() const;
    [[nodiscard]] bool isAudio() const;
    [[nodiscard]] bool isScript() const;
    /// The decoder's configuration: AVCPacketType or AACPacketType 0.
    [[nodiscard]] bool isConfiguration() const;
    [[nodiscard]] bool isKeyFrame() const;
};

/// All tags of a file in which nothing is wrong. Throws std::runtime_error when something is.
[[nodiscard]] std::vector<FlvTag> readTags(const std::filesystem::path& file);

/// A file with these tags behind the header.
void writeTags(const std::filesystem::path& file, const std::vector<FlvTag>& tags);

/// The AMF0 value behind the name of an onMetaData message, as it stands there. Throws std::runtime_error for
/// another message.
[[nodiscard]] std::span<const std::uint8_t> metadataValue(const FlvTag& tag);

} // namespace mediaworker::test
