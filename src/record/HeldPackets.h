#pragma once

#include "ffmpeg/Packet.h"
#include "flv/Medium.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

namespace ko_player {

/// The packets that wait for the header of a file, in the order of the stream.
class HeldPackets {
public:
    using PacketPtr = std::shared_ptr<ff_wrap::Packet>;

    struct Held {
        Medium medium;
        PacketPtr packet;
        std::uint64_t bytes; ///< payload and side data
    };

    void push(Medium medium, PacketPtr packet);
    /// The oldest one. There must be one.
    [[nodiscard]] Held pop();

    [[nodiscard]] bool empty() const noexcept { return held_.empty(); }
    [[nodiscard]] std::size_t count() const noexcept { return held_.size(); }
    [[nodiscard]] std::uint64_t bytes() const noexcept { return bytes_; }
    [[nodiscard]] bool has(Medium medium) const;
    /// The time between the first and the last, milliseconds; 0 for fewer than two.
    [[nodiscard]] std::int64_t spanMs() const;
    /// The smallest decode time stamp of all, milliseconds.
    [[nodiscard]] std::optional<std::int64_t> earliestMs() const;

    [[nodiscard]] std::deque<Held>::const_iterator begin() const { return held_.begin(); }
    [[nodiscard]] std::deque<Held>::const_iterator end() const { return held_.end(); }

private:
    std::deque<Held> held_;
    std::uint64_t bytes_ = 0;
};

} // namespace ko_player
