#pragma once

#include "flv/Dialect.h"
#include "records/Options.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
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
    explicit FlvParser(Observer* observer, FlvReading reading = FlvReading::Strict)
        : observer_(observer), dialect_(dialectOf(reading)) {}

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
    /// False where the type is unknown.
    [[nodiscard]] bool deliver(std::uint8_t type, std::uint32_t timestampMs, Bytes body);
    template <class PacketType>
    void deliverTag(const ParsedTag<PacketType>& tag, void (Observer::*receive)(const PacketType&),
                    std::string_view name, TrackChoice& track);
    void deliverScriptData(Bytes body);

    Observer* observer_;
    const Dialect& dialect_;
    State state_ = State::Header;
    std::uint32_t expectedPrevTagSize_ = 0;
    TrackChoice audioTrack_;
    TrackChoice videoTrack_;
};

} // namespace ko_player::flv
