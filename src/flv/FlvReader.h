#pragma once

#include "flv/FlatBuffer.h"
#include "flv/FlvParser.h"
#include "records/Options.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <span>

namespace ko_player::flv {

/// Feeds the bytes of a stream, in pieces of any size, to the tag reader. One thread at a time; the observer
/// is called on it.
class FlvReader {
public:
    /// The most bytes of an incomplete tag that are kept.
    static constexpr std::size_t kMaxUnreadBytes = 0x500000;
    /// Longer input is taken in slices of this size.
    static constexpr std::size_t kMaxSliceBytes = 0x100000;

    explicit FlvReader(Observer* observer, FlvReading reading = FlvReading::Strict)
        : buffer_(kMaxUnreadBytes), parser_(observer, reading) {}

    /// Reads on. Returns why the stream cannot be read any further; later calls then fail likewise. Throws
    /// std::out_of_range "FlatBuffer.push gt maxSize" for a tag that does not fit into the buffer, and
    /// whatever the observer throws.
    [[nodiscard]] std::optional<ParseError> consume(const std::uint8_t* data, std::size_t size);

private:
    using Bytes = std::span<const std::uint8_t>;
    /// What stopped a parse, if anything did: at most one of the two.
    struct Stopped {
        std::optional<ParseError> error;
        std::exception_ptr thrown; ///< by the observer

        explicit operator bool() const { return error.has_value() || thrown != nullptr; }
    };

    std::optional<ParseError> consumeSlice(Bytes slice);
    Stopped parse(Bytes& unread);
    Stopped parseBuffer();
    /// Takes from the slice what the unit at the front of the buffer lacks. False where it lacks more.
    bool completeUnit(Bytes& slice);
    /// Keeps the rest of a slice for later, then passes on what stopped the parse.
    std::optional<ParseError> keep(Bytes rest, Stopped stopped);

    FlatBuffer buffer_;
    FlvParser parser_;
    /// How many bytes the unit at the front of the buffer needs, as far as is known.
    std::size_t bytesNeeded_ = 0;
};

} // namespace ko_player::flv
