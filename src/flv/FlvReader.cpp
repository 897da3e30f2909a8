#include "flv/FlvReader.h"

#include <algorithm>
#include <utility>

namespace ko_player::flv {

std::optional<ParseError> FlvReader::consume(const std::uint8_t* data, std::size_t size) {
    Bytes input(data, size);
    while (!input.empty()) {
        const Bytes slice = input.first(std::min(input.size(), kMaxSliceBytes));
        input = input.subspan(slice.size());
        if (auto error = consumeSlice(slice)) {
            return error;
        }
    }
    return std::nullopt;
}

// Complete tags are read where they lie in the input. Only a tag that continues in the next piece goes
// through the buffer, and the buffer gets no more than that tag, so that reading returns to the input right
// behind it. The outcome is the same as if the whole slice were pushed first, and so is the check against the
// cap.
std::optional<ParseError> FlvReader::consumeSlice(Bytes slice) {
    buffer_.requireRoom(slice.size());
    while (!slice.empty()) {
        if (buffer_.empty()) {
            Stopped stopped = parse(slice);
            return keep(slice, std::move(stopped));
        }
        if (!completeUnit(slice)) {
            return std::nullopt;
        }
        if (Stopped stopped = parseBuffer()) {
            return keep(slice, std::move(stopped));
        }
    }
    return std::nullopt;
}

bool FlvReader::completeUnit(Bytes& slice) {
    const std::size_t unreadBytes = buffer_.unread().size();
    // Behind an error nothing is needed and everything is kept.
    const std::size_t missing = bytesNeeded_ > unreadBytes ? bytesNeeded_ - unreadBytes : slice.size();
    const Bytes part = slice.first(std::min(missing, slice.size()));
    buffer_.push(part.data(), part.size());
    slice = slice.subspan(part.size());
    return unreadBytes + part.size() >= bytesNeeded_;
}

FlvReader::Stopped FlvReader::parse(Bytes& unread) {
    try {
        auto outcome = parser_.parse(unread);
        bytesNeeded_ = outcome.bytesNeeded;
        return {std::move(outcome.error), nullptr};
    } catch (...) {
        bytesNeeded_ = 0;
        return {std::nullopt, std::current_exception()};
    }
}

FlvReader::Stopped FlvReader::parseBuffer() {
    Bytes unread = buffer_.unread();
    const std::size_t before = unread.size();
    Stopped stopped = parse(unread);
    buffer_.consume(before - unread.size());
    return stopped;
}

std::optional<ParseError> FlvReader::keep(Bytes rest, Stopped stopped) {
    buffer_.push(rest.data(), rest.size());
    if (stopped.thrown) {
        std::rethrow_exception(stopped.thrown);
    }
    return std::move(stopped.error);
}

} // namespace ko_player::flv
