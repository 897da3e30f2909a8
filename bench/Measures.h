#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <thread>
#include <vector>

/// What all measurements share.
namespace mediaworker::bench {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

/// The value below which that share (0 to 1) of the values lies. `values` must not be empty.
[[nodiscard]] inline double quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    const auto last = static_cast<double>(values.size() - 1);
    return values[static_cast<std::size_t>(share * last + 0.5)];
}

[[nodiscard]] inline double median(std::vector<double> values) {
    return quantile(std::move(values), 0.5);
}

/// Runs the measurement that the first argument names, or all of them.
inline void run(const std::map<std::string, void (*)()>& measurements, int argc, char** argv) {
    for (const auto& [name, measure] : measurements) {
        if (argc < 2 || name == argv[1]) {
            measure();
        }
    }
}

/// Seconds of processor time, user and system, of all children that have ended and been waited for.
[[nodiscard]] double childCpuSeconds();

/// A line of /proc/PID/status in megabytes (10^6), such as "VmHWM"; 0 when it cannot be read.
[[nodiscard]] double memoryMb(std::int64_t pid, const std::string& field);

/// The largest resident memory of a process, watched every other millisecond until it is gone or this is.
/// From the start of its program on: what forked it may have been larger.
class PeakMemory {
public:
    explicit PeakMemory(std::int64_t pid);
    ~PeakMemory();
    PeakMemory(const PeakMemory&) = delete;
    PeakMemory& operator=(const PeakMemory&) = delete;

    /// In megabytes, so far.
    [[nodiscard]] double mb() const { return mb_; }

private:
    std::atomic<double> mb_{0};
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

} // namespace mediaworker::bench
