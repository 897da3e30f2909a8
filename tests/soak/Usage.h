#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace mediaworker::soak {

/// What a process holds at a moment.
struct Usage {
    double seconds = 0;  ///< since the begin of the run
    double memoryMb = 0; ///< resident, 10^6 bytes
    int descriptors = 0;
    int threads = 0;
};

/// Of a process now; all zero when it is gone.
[[nodiscard]] Usage usageOf(std::int64_t pid, double seconds);

/// How what a process holds went up, from the first to the last third of the time that was watched. Medians
/// are compared, so that neither a peak nor the state at either end counts.
struct Growth {
    double hours = 0; ///< between the middles of both thirds
    double memoryMb = 0;
    double descriptors = 0;
    double threads = 0;
};

/// The first minute is left out: caches fill. A process that was watched for less than three minutes tells
/// nothing: zero hours.
[[nodiscard]] Growth growthOf(const std::vector<Usage>& usage);

/// What a run may add to any process, however long it is. A live stream that is paused again and again stays
/// behind by all pauses, until the worker holds what it may: 8 MiB of pictures, their sound, 1 MiB of the
/// response.
inline constexpr double kMostMemoryMb = 15;
inline constexpr double kMostDescriptors = 3;
inline constexpr double kMostThreads = 2;

[[nodiscard]] inline bool isWithinBounds(const Growth& growth) {
    return growth.memoryMb <= kMostMemoryMb && growth.descriptors <= kMostDescriptors &&
           growth.threads <= kMostThreads;
}

/// "+1.3 (+0.2)" for a table: per hour, and in the time that was watched; "-" where that tells nothing.
[[nodiscard]] std::string growthText(const Growth& growth, double Growth::*what);

} // namespace mediaworker::soak
