#pragma once

#include "base/Clock.h"
#include "base/Saturating.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace ko_player {

/// Decides when what is collected of a recording goes into the file. What is collected is lost with the
/// process.
class FragmentRule {
public:
    static constexpr std::size_t kMaxTracks = 2;
    /// Of one track's stamps.
    static constexpr std::int64_t kLongestMs = 1000;
    /// Of the clock, where the stream stops.
    static constexpr std::chrono::milliseconds kOldest{1000};
    /// What is collected is held twice, and the server waits while it is written.
    static constexpr std::size_t kMostBytes = 256 << 10;

    /// Whether what is collected has to go before a packet with that decode time stamp is collected.
    [[nodiscard]] bool isDueBefore(std::size_t track, std::int64_t dtsMs) const {
        const auto& first = firstMs_[track];
        return bytes_ >= kMostBytes ||
               (first && (base::subtractSaturated(dtsMs, *first) >= kLongestMs || dtsMs < *first));
    }
    /// It is collected.
    void add(std::size_t track, std::int64_t dtsMs, std::size_t bytes) {
        if (!firstMs_[track]) {
            firstMs_[track] = dtsMs;
        }
        bytes_ += bytes;
    }
    /// Whether it has to go since it has been there for too long; to be asked now and again, for the time
    /// counts from the first time that it is.
    [[nodiscard]] bool isOld(base::TimePoint now) {
        if (bytes_ == 0) {
            return false;
        }
        if (!seen_) {
            seen_ = now;
        }
        return now - *seen_ >= kOldest;
    }
    /// It has gone.
    void restart() { *this = FragmentRule(); }

private:
    std::array<std::optional<std::int64_t>, kMaxTracks> firstMs_;
    std::size_t bytes_ = 0;
    std::optional<base::TimePoint> seen_;
};

} // namespace ko_player
