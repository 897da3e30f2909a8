#pragma once

#include <cstdint>
#include <optional>

namespace ko_player::flv {

/// Carries the time stamps of tags (milliseconds, 32 bits, of all kinds of frames) on where they wrap, and
/// takes a stamp from before the begin of time for what it is: each is the one nearest to the last.
class WrappingTime {
public:
    [[nodiscard]] std::int64_t next(std::uint32_t timestampMs) {
        last_ = last_ ? *last_ + static_cast<std::int32_t>(timestampMs - static_cast<std::uint32_t>(*last_))
                      : std::int64_t{timestampMs};
        return *last_;
    }

private:
    std::optional<std::int64_t> last_;
};

} // namespace ko_player::flv
