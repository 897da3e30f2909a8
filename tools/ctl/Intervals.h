#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

namespace mediaworker::ctl {

/// The times between events, in steps of 0.1 ms, however many there are: memory grows with the number of
/// different times only, and times of a minute and more are one.
class Intervals {
public:
    using Step = std::chrono::duration<std::int64_t, std::ratio<1, 10000>>;
    static constexpr Step kLongest = std::chrono::minutes(1);

    void add(std::chrono::nanoseconds interval);

    /// The middle one; of two in the middle the longer. Empty when there are none.
    [[nodiscard]] std::optional<Step> median() const;
    [[nodiscard]] std::optional<Step> longest() const;

private:
    std::map<Step, std::uint64_t> counts_;
    std::uint64_t total_ = 0;
};

} // namespace mediaworker::ctl
