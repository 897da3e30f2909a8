#include "tools/ctl/Intervals.h"

#include <algorithm>

namespace mediaworker::ctl {

void Intervals::add(std::chrono::nanoseconds interval) {
    const Step rounded = std::chrono::round<Step>(interval);
    ++counts_[std::clamp(rounded, Step::zero(), kLongest)];
    ++total_;
}

std::optional<Intervals::Step> Intervals::median() const {
    std::uint64_t before = 0;
    for (const auto& [interval, count] : counts_) {
        before += count;
        if (before > total_ / 2) {
            return interval;
        }
    }
    return std::nullopt;
}

std::optional<Intervals::Step> Intervals::longest() const {
    if (counts_.empty()) {
        return std::nullopt;
    }
    return counts_.rbegin()->first;
}

} // namespace mediaworker::ctl
