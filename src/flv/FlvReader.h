#pragma once

#include "flv/FlatBuffer.h"
#include "flv/FlvParser.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace ko_player::flv {

/// Feeds the bytes of a stream, in pieces of any size, to the tag reader. One thread at a time; the observer
/// is called on it.
class FlvReader {
public:
    /// The most bytes of an incomplete tag that are kept.
    static constexpr std::size_t kMaxUnreadBytes = 0x500000;
    /// Longer input is taken in slices of this size.
    static constexpr std::size_t kMaxSliceBytes = 0x100000;

    explicit FlvReader(Observer* observer) : buffer_(kMaxUnreadBytes), parser_(observer) {}

    /// Reads on. False after a parse error, which is logged behind `logPrefix`; further calls fail likewise.
    /// Throws std::out_of_range "FlatBuffer.push gt maxSize" for a tag that does not fit into the buffer, and
    /// whatever the observer throws.
    [[nodiscard]] bool consume(std::string_view logPrefix, const std::uint8_t* data, std::size_t size);

private:
    std::optional<ParseError> consumeSlice(std::span<const std::uint8_t> slice);
    std::optional<ParseError> parseInput(std::span<const std::uint8_t>& slice);
    std::optional<ParseError> parseBuffer();

    FlatBuffer buffer_;
    FlvParser parser_;
    /// How many bytes the unit at the front of the buffer needs, as far as is known.
    std::size_t bytesNeeded_ = 0;
};

} // namespace ko_player::flv
