#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <system_error>

namespace ko_player::flv {

class Observer;

/// Why a stream cannot be read on.
struct ParseError {
    std::error_code code; ///< always the generic "invalid argument"
    std::string message;

    /// As log lines show it: "ec: ..., what: ...".
    [[nodiscard]] std::string text() const;
};

/// Reads FLV from bytes that arrive in pieces: takes whole units (file header, back-pointer, tag) and leaves
/// what is incomplete. After an error nothing is taken any more: the same bytes give the same error again.
/// One thread at a time.
class FlvParser {
public:
    /// Without an observer events are dropped.
    explicit FlvParser(Observer* observer) : observer_(observer) {}

    struct Outcome {
        std::optional<ParseError> error;
        /// Without an error: parsing gets no further with fewer unread bytes than this.
        std::size_t bytesNeeded = 0;
    };

    /// Takes all complete units from the front of `unread`. Where the observer throws, `unread` begins with
    /// the tag that it was called for.
    [[nodiscard]] Outcome parse(std::span<const std::uint8_t>& unread);

private:
    enum class State : std::uint32_t { Header = 0, BackPointer = 1, Tag = 2 };
    /// How a step ended.
    enum class Step { Done, NeedsMore, Failed };
    using Bytes = std::span<const std::uint8_t>;

    Step readHeader(Bytes& unread, Outcome& outcome);
    Step readBackPointer(Bytes& unread, Outcome& outcome);
    Step readTag(Bytes& unread, Outcome& outcome);
    void deliverAudio(std::uint32_t timestampMs, Bytes body);
    void deliverVideo(std::uint32_t timestampMs, Bytes body);
    void deliverScriptData(Bytes body);

    Observer* observer_;
    State state_ = State::Header;
    std::uint32_t expectedPrevTagSize_ = 0;
};

} // namespace ko_player::flv
