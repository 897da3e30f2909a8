#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace mediaworker::test {

/// A tone that rises for eight seconds and begins again: its pitch tells the time, to a few milliseconds.
inline constexpr double kSweepMs = 8000;

/// For ClipSpec::wave.
[[nodiscard]] std::string sweepWave();

/// What is heard in a short piece of a recording.
struct Heard {
    double atMs = 0; ///< middle of the piece, from the recording's begin
    bool isSilent = true;
    double sweepMs = -1; ///< the time within the sweep; below 0 where there is no clear pitch
};

/// One for every 20 ms.
[[nodiscard]] std::vector<Heard> readSweep(std::span<const std::int16_t> samples, int rate);

/// Brings a difference of times within the sweep to its nearest meaning: up to half a sweep either way.
[[nodiscard]] double nearestSweepMs(double ms);

} // namespace mediaworker::test
