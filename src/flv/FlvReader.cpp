#include "flv/FlvReader.h"

#include "base/Log.h"

#include <algorithm>
#include <utility>

namespace ko_player::flv {

bool FlvReader::consume(std::string_view logPrefix, const std::uint8_t* data, std::size_t size) {
    std::span<const std::uint8_t> input(data, size);
    while (!input.empty()) {
        const auto slice = input.first(std::min(input.size(), kMaxSliceBytes));
        input = input.subspan(slice.size());
        if (const auto error = consumeSlice(slice)) {
            base::logAt(logPrefix, "ec: ", error->code.message(), ", what: ", error->message);
            return false;
        }
    }
    return true;
}

// Complete tags are read where they lie in the input. Only a tag that continues in the next piece goes
// through the buffer, and the buffer gets no more than that tag, so that reading returns to the input right
// behind it. The outcome is the same as if the whole slice were pushed first, and so is the check against the
// cap.
std::optional<ParseError> FlvReader::consumeSlice(std::span<const std::uint8_t> slice) {
    buffer_.requireRoom(slice.size());
    while (!slice.empty()) {
        if (buffer_.empty()) {
            return parseInput(slice);
        }
        const std::size_t unreadBytes = buffer_.unread().size();
        // Behind an error nothing is needed and everything is kept.
        const std::size_t missing = bytesNeeded_ > unreadBytes ? bytesNeeded_ - unreadBytes : slice.size();
        const auto part = slice.first(std::min(missing, slice.size()));
        buffer_.push(part.data(), part.size());
        slice = slice.subspan(part.size());
        if (unreadBytes + part.size() < bytesNeeded_) {
            return std::nullopt;
        }
        try {
            if (auto error = parseBuffer()) {
                buffer_.push(slice.data(), slice.size());
                return error;
            }
        } catch (...) {
            buffer_.push(slice.data(), slice.size());
            throw;
        }
    }
    return std::nullopt;
}

/// Reads from the input itself; what is left of it goes into the buffer.
std::optional<ParseError> FlvReader::parseInput(std::span<const std::uint8_t>& slice) {
    try {
        auto outcome = parser_.parse(slice);
        bytesNeeded_ = outcome.bytesNeeded;
        buffer_.push(slice.data(), slice.size());
        return std::move(outcome.error);
    } catch (...) {
        bytesNeeded_ = 0;
        buffer_.push(slice.data(), slice.size());
        throw;
    }
}

std::optional<ParseError> FlvReader::parseBuffer() {
    auto unread = buffer_.unread();
    const std::size_t before = unread.size();
    try {
        auto outcome = parser_.parse(unread);
        bytesNeeded_ = outcome.bytesNeeded;
        buffer_.consume(before - unread.size());
        return std::move(outcome.error);
    } catch (...) {
        bytesNeeded_ = 0;
        buffer_.consume(before - unread.size());
        throw;
    }
}

} // namespace ko_player::flv
